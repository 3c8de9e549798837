#include "torq_sim/SimHost.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace torq_sim {

namespace {
// The timer wakes at least this often, so a request added later with a near deadline is not
// left waiting behind a far one.
constexpr int64_t kMaxTimerSleepMs = 20;
}  // namespace

SimHost::SimHost() : SimHost(Options{}) {}

SimHost::SimHost(Options options)
    : options_(std::move(options)),
      clock_(options_.clock ? options_.clock : steadyClock()),
      journal_(std::make_shared<Journal>()),
      script_(std::make_shared<Script>()),
      callsMark_(journal_->mark()) {}

SimHost::~SimHost() {
    kill();
    undeclare();
}

void SimHost::declare() {
    binder_host::declareInstance(kTorqInstance);
    std::lock_guard<std::mutex> lock(mutex_);
    declared_ = true;
}

void SimHost::undeclare() {
    bool was;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        was = declared_;
        declared_ = false;
    }
    if (was) binder_host::undeclareInstance(kTorqInstance);
}

bool SimHost::start() {
    if (alive()) return true;
    kill();  // a HAL process that died on its own still has its timer and object here
    const binder_host::ProcessId pid = binder_host::createProcess(options_.processName);
    std::shared_ptr<SimTorq> hal;
    binder_status_t status = STATUS_UNKNOWN_ERROR;
    SimTorq::Options halOptions;
    halOptions.clock = clock_;
    halOptions.journal = journal_;
    halOptions.script = script_;
    halOptions.modelCallbacks = options_.modelCallbacks;
    halOptions.dumpSink = [this](const std::vector<std::string>& lines) {
        std::lock_guard<std::mutex> guard(mutex_);
        dumpLines_.insert(dumpLines_.end(), lines.begin(), lines.end());
    };
    // The HAL's binder must be created by a thread of its own process to belong to it.
    binder_host::runInProcess(pid, [&] {
        hal = ::ndk::SharedRefBase::make<SimTorq>(halOptions);
        status = AServiceManager_addService(hal->asBinder().get(), kTorqInstance);
    });
    if (hal == nullptr || status != STATUS_OK) {
        binder_host::killProcess(pid);
        // Held calls end with the process (their callers already got DEAD_OBJECT): they must not
        // keep its threads alive.
        script_->releaseHeld();
        return false;
    }
    if (options_.declare) declare();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        hal_ = std::move(hal);
        pid_ = pid;
        ++generation_;
    }
    journal_->addNote(clock_(), "HAL started (" + options_.processName + ", process " +
                                        std::to_string(pid) + ")");
    if (options_.autoTick) {
        std::lock_guard<std::mutex> timerLock(timerMutex_);
        timerStop_ = false;
        timer_ = std::thread(&SimHost::timerLoop, this);
    }
    return true;
}

void SimHost::stopTimer() {
    {
        std::lock_guard<std::mutex> timerLock(timerMutex_);
        timerStop_ = true;
    }
    timerCv_.notify_all();
    if (timer_.joinable()) timer_.join();
}

void SimHost::kill() {
    stopTimer();
    std::shared_ptr<SimTorq> dead;
    binder_host::ProcessId pid = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (hal_ == nullptr) return;
        dead = std::move(hal_);
        pid = pid_;
    }
    // Not under mutex_: calls still running in the HAL finish and may reach the dump sink.
    binder_host::killProcess(pid);
    journal_->addNote(clock_(), "HAL killed (process " + std::to_string(pid) + ")");
    // Let the death notices and reference drops settle before the object goes.
    binder_host::drain(2000);
}

bool SimHost::restart() {
    if (alive()) {
        throw std::invalid_argument("restart: the HAL is running; kill() it first");
    }
    kill();  // a process that died some other way still has its object and timer here
    return start();
}

bool SimHost::alive() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return hal_ != nullptr && binder_host::isAlive(pid_);
}

binder_host::ProcessId SimHost::pid() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return pid_;
}

int SimHost::generation() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return generation_;
}

std::shared_ptr<SimTorq> SimHost::hal() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return hal_;
}

bool SimHost::inspect(const std::function<void(const SimModel&)>& fn) const {
    std::shared_ptr<SimTorq> hal = this->hal();
    if (hal == nullptr) return false;
    hal->inspect(fn);
    return true;
}

std::vector<std::string> SimHost::takeDumpOutput() {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> out;
    out.swap(dumpLines_);
    return out;
}

std::pair<std::shared_ptr<SimTorq>, binder_host::ProcessId> SimHost::running() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return {hal_, pid_};
}

void SimHost::tick() {
    std::shared_ptr<SimTorq> hal;
    binder_host::ProcessId pid;
    std::tie(hal, pid) = running();  // plain variables: the lambdas below capture them
    if (hal == nullptr) return;
    // Callbacks made by the tick must leave from the HAL's process.
    binder_host::runInProcess(pid, [&] { hal->tick(); });
}

void SimHost::timerLoop() {
    std::unique_lock<std::mutex> timerLock(timerMutex_);
    while (!timerStop_) {
        timerLock.unlock();
        tick();
        int64_t sleepMs = kMaxTimerSleepMs;
        if (std::shared_ptr<SimTorq> hal = this->hal()) {
            if (auto deadline = hal->nextDeadline()) {
                sleepMs = std::max<int64_t>(1, std::min(sleepMs, *deadline - clock_()));
            }
        }
        timerLock.lock();
        timerCv_.wait_for(timerLock, std::chrono::milliseconds(sleepMs),
                          [this] { return timerStop_; });
    }
}

void SimHost::checkMethod(const std::string& method) {
    if (!outValueOf(method)) {
        throw std::invalid_argument("ITorq has no method \"" + method + "\"");
    }
}

void SimHost::setAnswer(const std::string& method, const SentAnswer& answer) {
    const std::string error = script_->set(method, answer);
    if (!error.empty()) throw std::invalid_argument("setAnswer: " + error);
}

void SimHost::answerOnce(const std::string& method, const SentAnswer& answer) {
    const std::string error = script_->once(method, answer);
    if (!error.empty()) throw std::invalid_argument("answerOnce: " + error);
}

void SimHost::clearAnswers(const std::string& method) {
    checkMethod(method);
    script_->clear(method);
}

void SimHost::clearAnswers() {
    script_->clearAll();
}

void SimHost::holdCalls(const std::string& method) {
    if (!script_->hold(method)) throw std::invalid_argument("holdCalls: unknown method " + method);
}

void SimHost::releaseHeld() {
    script_->releaseHeld();
}

std::vector<ReceivedCall> SimHost::calls() const {
    uint64_t mark;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        mark = callsMark_;
    }
    std::vector<ReceivedCall> out;
    for (JournalEntry& e : journal_->since(mark)) {
        if (e.type == JournalEntry::Type::kCall) out.push_back(std::move(e.call));
    }
    return out;
}

std::vector<ReceivedCall> SimHost::calls(const std::string& method) const {
    checkMethod(method);
    std::vector<ReceivedCall> out;
    for (ReceivedCall& c : calls()) {
        if (c.method == method) out.push_back(std::move(c));
    }
    return out;
}

ReceivedCall SimHost::last(const std::string& method) const {
    std::vector<ReceivedCall> matching = calls(method);
    if (matching.empty()) {
        throw std::invalid_argument("last: the HAL received no " + method + " call");
    }
    return std::move(matching.back());
}

size_t SimHost::count(const std::string& method) const {
    return calls(method).size();
}

void SimHost::clearCalls() {
    const uint64_t mark = journal_->mark();
    std::lock_guard<std::mutex> lock(mutex_);
    callsMark_ = mark;
}

bool SimHost::waitForCalls(const std::string& method, size_t n, int64_t timeoutMs) const {
    checkMethod(method);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        // The mark first: a call journaled after it wakes the wait below.
        const uint64_t mark = journal_->mark();
        if (count(method) >= n) return true;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        journal_->waitPast(mark, left.count());
    }
}

size_t SimHost::callbackCount() const {
    std::shared_ptr<SimTorq> hal = this->hal();
    return hal == nullptr ? 0 : hal->heldCallbacks().size();
}

::ndk::ScopedAStatus SimHost::invokeCallback(size_t index,
                                             const std::vector<TorqRequestData>& records) {
    std::shared_ptr<SimTorq> hal;
    binder_host::ProcessId pid;
    std::tie(hal, pid) = running();  // plain variables: the lambdas below capture them
    if (hal == nullptr || !binder_host::isAlive(pid)) {
        throw std::invalid_argument("invokeCallback: the HAL is not running");
    }
    const size_t held = hal->heldCallbacks().size();
    if (index >= held) {
        throw std::invalid_argument("invokeCallback: the HAL holds " + std::to_string(held) +
                                    " callback(s), there is no #" + std::to_string(index));
    }
    ::ndk::ScopedAStatus status(AStatus_fromStatus(STATUS_DEAD_OBJECT));
    binder_host::runInProcess(pid, [&] { status = hal->invokeHeldCallback(index, records); });
    return status;
}

void SimHost::dropCallbacks() {
    std::shared_ptr<SimTorq> hal;
    binder_host::ProcessId pid;
    std::tie(hal, pid) = running();  // plain variables: the lambdas below capture them
    if (hal == nullptr) return;
    std::vector<std::shared_ptr<ITorqCallback>> dropped = hal->dropHeldCallbacks();
    // The references belong to the HAL process: let go of them there.
    if (!binder_host::runInProcess(pid, [&] { dropped.clear(); })) dropped.clear();
}

}  // namespace torq_sim
