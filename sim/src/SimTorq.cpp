#include "torq_sim/SimTorq.h"

#include <android/binder_ibinder.h>
#include <android/log.h>

#include <unistd.h>

#include <utility>

#include "torq_sim/Render.h"

namespace torq_sim {

const char* const kTorqInstance = "vendor.quarn.hardware.torq.ITorq/default";

namespace {

constexpr char kLogTag[] = "torq-sim";

void logDump(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        __android_log_print(ANDROID_LOG_INFO, kLogTag, "%s", line.c_str());
    }
}

std::string deliveryTarget(const Delivery& d) {
    switch (d.reason) {
        case Delivery::Reason::kRequestAnswer:
            return "request #" + std::to_string(d.handle);
        case Delivery::Reason::kListener:
            return "listener #" + std::to_string(d.handle);
        case Delivery::Reason::kThermalListener:
            return "thermal listener #" + std::to_string(d.handle);
    }
    return "#" + std::to_string(d.handle);
}

ReceivedCall received(const char* method) {
    ReceivedCall call;
    call.method = method;
    return call;
}

// The record keeps no callback: a journal entry must not keep a client's binder alive.
ReceivedCall receivedParcel(const char* method, const TorqRequestParcel& parcel) {
    ReceivedCall call = received(method);
    call.parcel = parcel;
    call.hasCallback = parcel.callback != nullptr;
    call.parcel.callback = nullptr;
    return call;
}

}  // namespace

SimTorq::SimTorq() : SimTorq(Options{}) {}

SimTorq::SimTorq(Options options)
    : clock_(options.clock ? std::move(options.clock) : steadyClock()),
      journal_(options.journal ? std::move(options.journal) : std::make_shared<Journal>()),
      dumpSink_(options.dumpSink ? std::move(options.dumpSink) : logDump),
      script_(options.script ? std::move(options.script) : std::make_shared<Script>()),
      modelCallbacks_(options.modelCallbacks),
      model_(clock_) {}

SimTorq::~SimTorq() = default;

int64_t SimTorq::now() const {
    return clock_();
}

void SimTorq::finish(std::unique_lock<std::mutex>& lock) {
    std::vector<Delivery> deliveries = model_.takeDeliveries();
    if (!modelCallbacks_) deliveries.clear();
    std::vector<std::string> dump = model_.takeDumpOutput();
    lock.unlock();
    if (!dump.empty()) dumpSink_(dump);
    for (Delivery& d : deliveries) {
        const std::string target = deliveryTarget(d);
        journal_->addCallback(now(), d.records, target);
        ::ndk::ScopedAStatus status = d.callback->onCallback(d.records);
        if (status.isOk() || d.reason == Delivery::Reason::kRequestAnswer) continue;
        // The client is gone (or refuses): stop calling it.
        journal_->addNote(now(), "onCallback to " + target + " failed (" + status.getDescription() +
                                         "), listener dropped");
        std::lock_guard<std::mutex> relock(mutex_);
        model_.forgetCallback(d.callback);
    }
}

void SimTorq::tick() {
    std::unique_lock<std::mutex> lock(mutex_);
    model_.tick();
    finish(lock);
}

std::optional<int64_t> SimTorq::nextDeadline() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return model_.nextDeadline();
}

void SimTorq::inspect(const std::function<void(const SimModel&)>& fn) const {
    std::lock_guard<std::mutex> lock(mutex_);
    fn(model_);
}

binder_status_t SimTorq::dump(int fd, const char** /*args*/, uint32_t /*numArgs*/) {
    constexpr size_t kJournalTail = 50;
    std::string text = std::string(kSimVersion) + "\n";
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (int32_t code = kCommandDumpFirst; code <= kCommandDumpLast; ++code) {
            text += std::string(dumpTableName(code)) + ":\n";
            for (const std::string& line : model_.table(code)) text += "  " + line + "\n";
        }
    }
    std::vector<JournalEntry> entries = journal_->entries();
    const size_t first = entries.size() > kJournalTail ? entries.size() - kJournalTail : 0;
    text += "journal:\n";
    for (size_t i = first; i < entries.size(); ++i) {
        text += "  " + entries[i].toString() + "\n";
    }
    const char* p = text.data();
    size_t left = text.size();
    while (left > 0) {
        const ssize_t n = write(fd, p, left);
        if (n <= 0) return STATUS_UNKNOWN_ERROR;
        p += n;
        left -= static_cast<size_t>(n);
    }
    return STATUS_OK;
}

namespace {

::ndk::ScopedAStatus statusOf(const SentAnswer& a) {
    if (a.transactionError != STATUS_OK) {
        return ::ndk::ScopedAStatus(AStatus_fromStatus(a.transactionError));
    }
    if (a.exception == EX_SERVICE_SPECIFIC) {
        return ::ndk::ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(
                a.serviceSpecificError, a.message.c_str()));
    }
    if (a.exception != EX_NONE) {
        return ::ndk::ScopedAStatus(
                AStatus_fromExceptionCodeWithMessage(a.exception, a.message.c_str()));
    }
    return ::ndk::ScopedAStatus::ok();
}

bool failing(const SentAnswer& a) {
    return a.exception != EX_NONE || a.transactionError != STATUS_OK;
}

struct NoOut {};
void writeOut(NoOut*, const SentAnswer&) {}
void writeOut(int32_t* out, const SentAnswer& a) {
    if (a.result) *out = *a.result;
}
void writeOut(std::vector<TorqRequestData>* out, const SentAnswer& a) {
    if (a.records) *out = *a.records;
}
void writeOut(std::string* out, const SentAnswer& a) {
    if (a.text) *out = *a.text;
}

}  // namespace

template <typename Out, typename Model>
::ndk::ScopedAStatus SimTorq::serve(ReceivedCall call,
                                    std::vector<std::shared_ptr<ITorqCallback>> callbacks, Out* out,
                                    Model&& model) {
    const std::optional<SentAnswer> scripted = script_->take(call.method);
    call.callingPid = AIBinder_getCallingPid();
    {
        std::lock_guard<std::mutex> held(heldMutex_);
        for (auto& cb : callbacks) {
            if (cb != nullptr) held_.push_back(std::move(cb));
        }
    }
    std::unique_lock<std::mutex> lock(mutex_);
    SentAnswer answer;
    if (scripted && failing(*scripted)) {
        answer = *scripted;  // the model never sees a call the script fails
    } else {
        model(answer);
        if (scripted) {
            if (scripted->result) answer.result = scripted->result;
            if (scripted->records) answer.records = scripted->records;
            if (scripted->text) answer.text = scripted->text;
        }
        writeOut(out, answer);
    }
    const std::string method = call.method;
    journal_->addCall(now(), std::move(call), answer);
    finish(lock);
    script_->waitWhileHeld(method);
    return statusOf(answer);
}

std::vector<std::shared_ptr<ITorqCallback>> SimTorq::heldCallbacks() const {
    std::lock_guard<std::mutex> lock(heldMutex_);
    return held_;
}

::ndk::ScopedAStatus SimTorq::invokeHeldCallback(size_t index,
                                                 const std::vector<TorqRequestData>& records) {
    std::shared_ptr<ITorqCallback> callback;
    {
        std::lock_guard<std::mutex> lock(heldMutex_);
        if (index >= held_.size())
            return ::ndk::ScopedAStatus(AStatus_fromStatus(STATUS_BAD_INDEX));
        callback = held_[index];
    }
    journal_->addCallback(now(), records, "held callback #" + std::to_string(index));
    return callback->onCallback(records);
}

std::vector<std::shared_ptr<ITorqCallback>> SimTorq::dropHeldCallbacks() {
    std::lock_guard<std::mutex> lock(heldMutex_);
    std::vector<std::shared_ptr<ITorqCallback>> out;
    out.swap(held_);
    return out;
}

::ndk::ScopedAStatus SimTorq::init() {
    NoOut none;
    return serve(received("init"), {}, &none, [&](SentAnswer&) { model_.init(); });
}

::ndk::ScopedAStatus SimTorq::request(const TorqRequestParcel& parcel, int32_t* _aidl_return) {
    return serve(receivedParcel("request", parcel), {parcel.callback}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.request(parcel); });
}

::ndk::ScopedAStatus SimTorq::release(int32_t handle, int32_t* _aidl_return) {
    ReceivedCall call = received("release");
    call.handle = handle;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.release(handle); });
}

::ndk::ScopedAStatus SimTorq::stateRequest(const TorqRequestParcel& parcel,
                                           std::vector<TorqRequestData>* _aidl_return) {
    return serve(receivedParcel("stateRequest", parcel), {parcel.callback}, _aidl_return,
                 [&](SentAnswer& a) { a.records = model_.stateRequest(parcel); });
}

::ndk::ScopedAStatus SimTorq::listeningRegister(const TorqRequestParcel& parcel,
                                                const std::shared_ptr<ITorqCallback>& callback,
                                                int32_t* _aidl_return) {
    ReceivedCall call = receivedParcel("listeningRegister", parcel);
    call.hasCallback = callback != nullptr;
    return serve(std::move(call), {callback, parcel.callback}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.listeningRegister(parcel, callback); });
}

::ndk::ScopedAStatus SimTorq::listeningUnregister(int32_t handle, int32_t* _aidl_return) {
    ReceivedCall call = received("listeningUnregister");
    call.handle = handle;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.listeningUnregister(handle); });
}

::ndk::ScopedAStatus SimTorq::propertyGet(const std::string& name, std::string* _aidl_return) {
    ReceivedCall call = received("propertyGet");
    call.name = name;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.text = model_.propertyGet(name); });
}

::ndk::ScopedAStatus SimTorq::propertySet(const std::string& name, const std::string& value,
                                          int32_t* _aidl_return) {
    ReceivedCall call = received("propertySet");
    call.name = name;
    call.value = value;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.propertySet(name, value); });
}

::ndk::ScopedAStatus SimTorq::thermalListeningRegister(const std::vector<int32_t>& ids,
                                                       const std::shared_ptr<ITorqCallback>& callback,
                                                       int32_t* _aidl_return) {
    ReceivedCall call = received("thermalListeningRegister");
    call.ids = ids;
    call.hasCallback = callback != nullptr;
    return serve(std::move(call), {callback}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.thermalListeningRegister(ids, callback); });
}

::ndk::ScopedAStatus SimTorq::thermalListeningUnregister(int32_t handle, int32_t* _aidl_return) {
    ReceivedCall call = received("thermalListeningUnregister");
    call.handle = handle;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.thermalListeningUnregister(handle); });
}

::ndk::ScopedAStatus SimTorq::notifyEvent(const TorqRequestParcel& parcel, int32_t* _aidl_return) {
    return serve(receivedParcel("notifyEvent", parcel), {parcel.callback}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.notifyEvent(parcel); });
}

::ndk::ScopedAStatus SimTorq::setRelatedSysInfo(int32_t type, int64_t value, int32_t* _aidl_return) {
    ReceivedCall call = received("setRelatedSysInfo");
    call.first = type;
    call.second = value;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.setRelatedSysInfo(type, value); });
}

::ndk::ScopedAStatus SimTorq::ruleCtl(int32_t ruleId, int32_t status,
                                      const std::vector<TorqRequestData>& data,
                                      int32_t* _aidl_return) {
    ReceivedCall call = received("ruleCtl");
    call.first = ruleId;
    call.status = status;
    call.entries = data;
    return serve(std::move(call), {}, _aidl_return,
                 [&](SentAnswer& a) { a.result = model_.ruleCtl(ruleId, status, data); });
}

}  // namespace torq_sim
