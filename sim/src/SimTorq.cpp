#include "torq_sim/SimTorq.h"

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

SentAnswer intAnswer(int32_t result) {
    SentAnswer answer;
    answer.result = result;
    return answer;
}

}  // namespace

SimTorq::SimTorq() : SimTorq(Options{}) {}

SimTorq::SimTorq(Options options)
    : clock_(options.clock ? std::move(options.clock) : steadyClock()),
      journal_(options.journal ? std::move(options.journal) : std::make_shared<Journal>()),
      dumpSink_(options.dumpSink ? std::move(options.dumpSink) : logDump),
      model_(clock_) {}

SimTorq::~SimTorq() = default;

int64_t SimTorq::now() const {
    return clock_();
}

void SimTorq::finish(std::unique_lock<std::mutex>& lock) {
    std::vector<Delivery> deliveries = model_.takeDeliveries();
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

::ndk::ScopedAStatus SimTorq::init() {
    std::unique_lock<std::mutex> lock(mutex_);
    model_.init();
    journal_->addCall(now(), received("init"), SentAnswer{});
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::request(const TorqRequestParcel& parcel, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.request(parcel);
    journal_->addCall(now(), receivedParcel("request", parcel), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::release(int32_t handle, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.release(handle);
    ReceivedCall call = received("release");
    call.handle = handle;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::stateRequest(const TorqRequestParcel& parcel,
                                           std::vector<TorqRequestData>* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.stateRequest(parcel);
    SentAnswer answer;
    answer.records = *_aidl_return;
    journal_->addCall(now(), receivedParcel("stateRequest", parcel), std::move(answer));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::listeningRegister(const TorqRequestParcel& parcel,
                                                const std::shared_ptr<ITorqCallback>& callback,
                                                int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.listeningRegister(parcel, callback);
    ReceivedCall call = receivedParcel("listeningRegister", parcel);
    call.hasCallback = callback != nullptr;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::listeningUnregister(int32_t handle, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.listeningUnregister(handle);
    ReceivedCall call = received("listeningUnregister");
    call.handle = handle;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::propertyGet(const std::string& name, std::string* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.propertyGet(name);
    ReceivedCall call = received("propertyGet");
    call.name = name;
    SentAnswer answer;
    answer.text = *_aidl_return;
    journal_->addCall(now(), std::move(call), std::move(answer));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::propertySet(const std::string& name, const std::string& value,
                                          int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.propertySet(name, value);
    ReceivedCall call = received("propertySet");
    call.name = name;
    call.value = value;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::thermalListeningRegister(const std::vector<int32_t>& ids,
                                                       const std::shared_ptr<ITorqCallback>& callback,
                                                       int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.thermalListeningRegister(ids, callback);
    ReceivedCall call = received("thermalListeningRegister");
    call.ids = ids;
    call.hasCallback = callback != nullptr;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::thermalListeningUnregister(int32_t handle, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.thermalListeningUnregister(handle);
    ReceivedCall call = received("thermalListeningUnregister");
    call.handle = handle;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::notifyEvent(const TorqRequestParcel& parcel, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.notifyEvent(parcel);
    journal_->addCall(now(), receivedParcel("notifyEvent", parcel), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::setRelatedSysInfo(int32_t type, int64_t value, int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.setRelatedSysInfo(type, value);
    ReceivedCall call = received("setRelatedSysInfo");
    call.first = type;
    call.second = value;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus SimTorq::ruleCtl(int32_t ruleId, int32_t status,
                                      const std::vector<TorqRequestData>& data,
                                      int32_t* _aidl_return) {
    std::unique_lock<std::mutex> lock(mutex_);
    *_aidl_return = model_.ruleCtl(ruleId, status, data);
    ReceivedCall call = received("ruleCtl");
    call.first = ruleId;
    call.status = status;
    call.entries = data;
    journal_->addCall(now(), std::move(call), intAnswer(*_aidl_return));
    finish(lock);
    return ::ndk::ScopedAStatus::ok();
}

}  // namespace torq_sim
