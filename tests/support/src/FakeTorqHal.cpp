#include <torq_test/FakeTorqHal.h>

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>

namespace torq_test {

const char* const kTorqInstance = "vendor.quarn.hardware.torq.ITorq/default";

using ::aidl::vendor::quarn::hardware::torq::BnTorq;

namespace {

// Methods whose int result is a handle that counts up when no fixed answer is set.
bool issuesHandles(const std::string& method) {
    return method == "request" || method == "listeningRegister" ||
           method == "thermalListeningRegister";
}

ndk::ScopedAStatus statusOf(const Answer& a) {
    if (a.transactionError != STATUS_OK) {
        return ndk::ScopedAStatus(AStatus_fromStatus(a.transactionError));
    }
    if (a.exception == EX_SERVICE_SPECIFIC) {
        return ndk::ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(
                a.serviceSpecificError, a.message.c_str()));
    }
    if (a.exception != EX_NONE) {
        return ndk::ScopedAStatus(
                AStatus_fromExceptionCodeWithMessage(a.exception, a.message.c_str()));
    }
    return ndk::ScopedAStatus(AStatus_newOk());
}

}  // namespace

namespace detail {

// What the fake HAL knows; shared by the test-side object and the binder object.
struct HalState {
    mutable std::mutex mu;
    mutable std::condition_variable cv;
    binder_host::ProcessId pid = 0;
    bool declare = true;
    std::map<std::string, Answer> answers;
    std::map<std::string, std::deque<Answer>> onceAnswers;
    int32_t nextHandle = 1;
    std::vector<RecordedCall> calls;
    std::vector<std::shared_ptr<ITorqCallback>> callbacks;
    std::shared_ptr<BnTorq> service;
    std::set<std::string> held;  // methods whose calls wait, once recorded, until released

    // Records the call and picks its answer (with the handle filled in where one is issued).
    Answer take(RecordedCall call, const std::shared_ptr<ITorqCallback>& callback) {
        std::unique_lock<std::mutex> lock(mu);
        const std::string method = call.method;
        call.callingProcess = AIBinder_getCallingPid();
        call.hasCallback = callback != nullptr;
        call.parcel.callback = nullptr;
        if (callback) callbacks.push_back(callback);
        Answer answer;
        bool fixed = false;
        auto once = onceAnswers.find(call.method);
        if (once != onceAnswers.end() && !once->second.empty()) {
            answer = once->second.front();
            once->second.pop_front();
            fixed = true;
        } else if (auto it = answers.find(call.method); it != answers.end()) {
            answer = it->second;
            fixed = true;
        }
        if (!fixed && issuesHandles(call.method)) answer.result = nextHandle++;
        calls.push_back(std::move(call));
        cv.notify_all();
        cv.wait(lock, [&] { return held.count(method) == 0; });
        return answer;
    }
};

}  // namespace detail

struct FakeTorqHal::State : detail::HalState {};

namespace {

// The HAL's binder object. It only holds the state weakly: the test owns the fake.
class Service : public BnTorq {
  public:
    explicit Service(std::weak_ptr<detail::HalState> state) : state_(std::move(state)) {}

    ndk::ScopedAStatus init() override {
        Answer a;
        return answer(call("init"), nullptr, &a);
    }
    ndk::ScopedAStatus request(const TorqRequestParcel& parcel, int32_t* ret) override {
        RecordedCall c = call("request");
        c.parcel = parcel;
        return intAnswer(std::move(c), parcel.callback, ret);
    }
    ndk::ScopedAStatus release(int32_t handle, int32_t* ret) override {
        RecordedCall c = call("release");
        c.handle = handle;
        return intAnswer(std::move(c), nullptr, ret);
    }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel& parcel,
                                    std::vector<TorqRequestData>* ret) override {
        RecordedCall c = call("stateRequest");
        c.parcel = parcel;
        Answer a;
        ndk::ScopedAStatus st = answer(std::move(c), parcel.callback, &a);
        if (a.writeResult) *ret = a.records;
        return st;
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel& parcel,
                                         const std::shared_ptr<ITorqCallback>& callback,
                                         int32_t* ret) override {
        RecordedCall c = call("listeningRegister");
        c.parcel = parcel;
        // The argument is the callback that matters; the parcel's field is kept too if set.
        if (callback && parcel.callback) keep(parcel.callback);
        return intAnswer(std::move(c), callback ? callback : parcel.callback, ret);
    }
    ndk::ScopedAStatus listeningUnregister(int32_t handle, int32_t* ret) override {
        RecordedCall c = call("listeningUnregister");
        c.handle = handle;
        return intAnswer(std::move(c), nullptr, ret);
    }
    ndk::ScopedAStatus propertyGet(const std::string& name, std::string* ret) override {
        RecordedCall c = call("propertyGet");
        c.name = name;
        Answer a;
        ndk::ScopedAStatus st = answer(std::move(c), nullptr, &a);
        if (a.writeResult) *ret = a.text;
        return st;
    }
    ndk::ScopedAStatus propertySet(const std::string& name, const std::string& value,
                                   int32_t* ret) override {
        RecordedCall c = call("propertySet");
        c.name = name;
        c.value = value;
        return intAnswer(std::move(c), nullptr, ret);
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>& ids,
                                                const std::shared_ptr<ITorqCallback>& callback,
                                                int32_t* ret) override {
        RecordedCall c = call("thermalListeningRegister");
        c.ids = ids;
        return intAnswer(std::move(c), callback, ret);
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t handle, int32_t* ret) override {
        RecordedCall c = call("thermalListeningUnregister");
        c.handle = handle;
        return intAnswer(std::move(c), nullptr, ret);
    }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel& parcel, int32_t* ret) override {
        RecordedCall c = call("notifyEvent");
        c.parcel = parcel;
        return intAnswer(std::move(c), parcel.callback, ret);
    }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t type, int64_t value, int32_t* ret) override {
        RecordedCall c = call("setRelatedSysInfo");
        c.first = type;
        c.second = value;
        return intAnswer(std::move(c), nullptr, ret);
    }
    ndk::ScopedAStatus ruleCtl(int32_t ruleId, int32_t status,
                               const std::vector<TorqRequestData>& data, int32_t* ret) override {
        RecordedCall c = call("ruleCtl");
        c.first = ruleId;
        c.status = status;
        c.entries = data;
        return intAnswer(std::move(c), nullptr, ret);
    }

  private:
    static RecordedCall call(const char* method) {
        RecordedCall c;
        c.method = method;
        return c;
    }

    void keep(const std::shared_ptr<ITorqCallback>& callback) {
        if (auto state = state_.lock()) {
            std::lock_guard<std::mutex> lock(state->mu);
            state->callbacks.push_back(callback);
        }
    }

    // Records the call and picks its answer; the returned status is the answer's.
    ndk::ScopedAStatus answer(RecordedCall c, const std::shared_ptr<ITorqCallback>& callback,
                              Answer* answer) {
        auto state = state_.lock();
        if (!state) return ndk::ScopedAStatus(AStatus_fromExceptionCode(EX_ILLEGAL_STATE));
        *answer = state->take(std::move(c), callback);
        return statusOf(*answer);
    }

    // The same for the methods with an int result, which is written unless the answer says not.
    ndk::ScopedAStatus intAnswer(RecordedCall c, const std::shared_ptr<ITorqCallback>& callback,
                                 int32_t* ret) {
        Answer a;
        ndk::ScopedAStatus st = answer(std::move(c), callback, &a);
        if (a.writeResult) *ret = a.result;
        return st;
    }

    std::weak_ptr<detail::HalState> state_;
};

}  // namespace

FakeTorqHal::FakeTorqHal(bool declare) : state_(std::make_shared<State>()) {
    state_->declare = declare;
    restart();
}

FakeTorqHal::~FakeTorqHal() {
    kill();
    if (state_->declare) binder_host::undeclareInstance(kTorqInstance);
}

binder_host::ProcessId FakeTorqHal::pid() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->pid;
}

bool FakeTorqHal::alive() const {
    binder_host::ProcessId p = pid();
    return p != 0 && binder_host::isAlive(p);
}

void FakeTorqHal::kill() {
    binder_host::ProcessId p;
    std::shared_ptr<BnTorq> service;
    std::vector<std::shared_ptr<ITorqCallback>> callbacks;
    {
        std::lock_guard<std::mutex> lock(state_->mu);
        p = state_->pid;
        service = std::move(state_->service);
        callbacks.swap(state_->callbacks);
    }
    if (p != 0 && binder_host::isAlive(p)) binder_host::killProcess(p);
    // The dead process's references are gone; drop our handles on them outside the lock.
    callbacks.clear();
    service.reset();
}

void FakeTorqHal::restart() {
    kill();
    binder_host::ProcessId p = binder_host::createProcess("torq-hal");
    std::shared_ptr<BnTorq> service;
    bool ran = binder_host::runInProcess(p, [&] {
        service = ndk::SharedRefBase::make<Service>(state_);
        binder_exception_t ex = AServiceManager_addService(service->asBinder().get(), kTorqInstance);
        EXPECT_EQ(ex, EX_NONE) << "AServiceManager_addService(" << kTorqInstance << ")";
    });
    EXPECT_TRUE(ran) << "the fake HAL process did not run";
    {
        std::lock_guard<std::mutex> lock(state_->mu);
        state_->pid = p;
        state_->service = std::move(service);
        state_->nextHandle = 1;
    }
    if (state_->declare) binder_host::declareInstance(kTorqInstance);
}

void FakeTorqHal::setAnswer(const std::string& method, const Answer& answer) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->answers[method] = answer;
}

void FakeTorqHal::answerOnce(const std::string& method, const Answer& answer) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->onceAnswers[method].push_back(answer);
}

void FakeTorqHal::setDefaultAnswers() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->answers.clear();
    state_->onceAnswers.clear();
}

std::vector<RecordedCall> FakeTorqHal::calls() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->calls;
}

std::vector<RecordedCall> FakeTorqHal::calls(const std::string& method) const {
    std::lock_guard<std::mutex> lock(state_->mu);
    std::vector<RecordedCall> out;
    for (const auto& c : state_->calls) {
        if (c.method == method) out.push_back(c);
    }
    return out;
}

RecordedCall FakeTorqHal::last(const std::string& method) const {
    std::vector<RecordedCall> matching = calls(method);
    if (matching.empty()) {
        ADD_FAILURE() << "the fake HAL received no " << method << " call";
        return RecordedCall{};
    }
    return matching.back();
}

size_t FakeTorqHal::count(const std::string& method) const {
    return calls(method).size();
}

void FakeTorqHal::clearCalls() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->calls.clear();
}

bool FakeTorqHal::waitForCalls(const std::string& method, size_t n, int64_t timeoutMs) const {
    std::unique_lock<std::mutex> lock(state_->mu);
    return state_->cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        size_t seen = 0;
        for (const auto& c : state_->calls) seen += c.method == method ? 1 : 0;
        return seen >= n;
    });
}

void FakeTorqHal::holdCalls(const std::string& method) {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->held.insert(method);
}

void FakeTorqHal::releaseHeld() {
    std::lock_guard<std::mutex> lock(state_->mu);
    state_->held.clear();
    state_->cv.notify_all();
}

size_t FakeTorqHal::callbackCount() const {
    std::lock_guard<std::mutex> lock(state_->mu);
    return state_->callbacks.size();
}

ndk::ScopedAStatus FakeTorqHal::invokeCallback(size_t index,
                                               const std::vector<TorqRequestData>& data) {
    std::shared_ptr<ITorqCallback> callback;
    binder_host::ProcessId p;
    {
        std::lock_guard<std::mutex> lock(state_->mu);
        if (index >= state_->callbacks.size()) {
            return ndk::ScopedAStatus(AStatus_fromStatus(STATUS_BAD_INDEX));
        }
        callback = state_->callbacks[index];
        p = state_->pid;
    }
    ndk::ScopedAStatus status(AStatus_fromStatus(STATUS_DEAD_OBJECT));
    binder_host::runInProcess(p, [&] { status = callback->onCallback(data); });
    return status;
}

void FakeTorqHal::dropCallbacks() {
    std::vector<std::shared_ptr<ITorqCallback>> callbacks;
    binder_host::ProcessId p;
    {
        std::lock_guard<std::mutex> lock(state_->mu);
        callbacks.swap(state_->callbacks);
        p = state_->pid;
    }
    // The references belong to the HAL process: let go of them there.
    if (!binder_host::runInProcess(p, [&] { callbacks.clear(); })) callbacks.clear();
}

TorqRequestData idRecord(int32_t id, std::optional<std::string> value) {
    TorqRequestData d;
    d.id = id;
    d.value = std::move(value);
    return d;
}

TorqRequestData pathRecord(std::optional<std::string> path, std::optional<std::string> value) {
    TorqRequestData d;
    d.path = std::move(path);
    d.value = std::move(value);
    return d;
}

}  // namespace torq_test
