#include "torq_sim/SimHost.h"

#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>
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
      journal_(std::make_shared<Journal>()) {}

SimHost::~SimHost() {
    kill();
    if (options_.declare) binder_host::undeclareInstance(kTorqInstance);
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
        return false;
    }
    if (options_.declare) binder_host::declareInstance(kTorqInstance);
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
    kill();
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

void SimHost::tick() {
    std::shared_ptr<SimTorq> hal;
    binder_host::ProcessId pid;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        hal = hal_;
        pid = pid_;
    }
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

}  // namespace torq_sim
