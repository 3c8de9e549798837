// Emulated processes: binder threads, work queues, killing, draining and the host control API.

#include <android/binder_process.h>
#include <binder_host/process.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "Internal.h"

namespace binder_host::internal {

thread_local ThreadContext tls;

namespace {

// How long exit waits for binder threads to finish the callbacks they are running.
constexpr auto kExitGrace = std::chrono::milliseconds(500);

// Runs at exit before the static objects that existed when the runtime was first used are
// destroyed: the program's globals (its service pointers, locks, tables) are what binder
// callbacks use, and a death notice or call served during their destruction would find them
// half gone. Threads stop taking work; those inside a callback get a moment to leave it.
void quiesceAtExit() {
    World& w = world();
    w.exiting.store(true, std::memory_order_seq_cst);
    const int32_t self = tls.inWork ? 1 : 0;  // exit called from inside a callback
    const auto deadline = std::chrono::steady_clock::now() + kExitGrace;
    while (w.busy.load(std::memory_order_seq_cst) > self &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    // Threads of killed processes that have ended are joined now (later ones detach themselves).
    joinExitedThreads();
}

// Counts the calling binder thread as running a work item; false when the program is exiting.
bool enterWork() {
    World& w = world();
    w.busy.fetch_add(1, std::memory_order_seq_cst);
    if (w.exiting.load(std::memory_order_seq_cst)) {
        w.busy.fetch_sub(1, std::memory_order_seq_cst);
        return false;
    }
    tls.inWork = true;
    return true;
}

void leaveWork() {
    tls.inWork = false;
    world().busy.fetch_sub(1, std::memory_order_seq_cst);
}

}  // namespace

World& world() {
    // Never destroyed: binder threads of the default process may still be waiting for work
    // while static destructors run at exit.
    static World* instance = [] {
        auto* w = new World;
        w->defaultProcess =
                std::make_shared<Process>(kDefaultProcess, "default", kDefaultProcessMaxThreads);
        w->processes[kDefaultProcess] = w->defaultProcess;
        std::atexit(quiesceAtExit);
        return w;
    }();
    return *instance;
}

Process* currentProcess() {
    Process* process = tls.process;
    return process != nullptr ? process : world().defaultProcess.get();
}

std::shared_ptr<Process> findProcess(ProcessId pid) {
    World& w = world();
    std::lock_guard<std::mutex> lock(w.registryMutex);
    auto it = w.processes.find(pid);
    if (it != w.processes.end()) return it->second;
    auto dead = w.deadProcesses.find(pid);
    return dead == w.deadProcesses.end() ? nullptr : dead->second.lock();
}

void workStarted() {
    world().pending.fetch_add(1);
}

void workFinished() {
    World& w = world();
    if (w.pending.fetch_sub(1) == 1 && w.drainWaiters.load() > 0) {
        std::lock_guard<std::mutex> lock(w.drainMutex);
        w.drainCv.notify_all();
    }
}

void joinExitedThreads() {
    World& w = world();
    std::vector<std::thread> exited;
    {
        std::lock_guard<std::mutex> lock(w.exitedMutex);
        exited.swap(w.exited);
    }
    // Each of them has left its loop; the join only waits for the thread's last instructions.
    for (std::thread& thread : exited) thread.join();
}

void postRelease(AIBinder* node) {
    node->process->post(Work{Work::kRelease, node});
}

namespace {

void linkInflight(Process* process, Transaction* txn) {
    txn->prev = nullptr;
    txn->next = process->inflight;
    if (process->inflight != nullptr) process->inflight->prev = txn;
    process->inflight = txn;
}

void unlinkInflight(Process* process, Transaction* txn) {
    if (txn->prev != nullptr) {
        txn->prev->next = txn->next;
    } else {
        process->inflight = txn->next;
    }
    if (txn->next != nullptr) txn->next->prev = txn->prev;
    txn->prev = txn->next = nullptr;
}

void finishTask(std::shared_ptr<Task>* holder, bool run) {
    std::shared_ptr<Task> task = std::move(*holder);
    delete holder;
    if (run) task->fn();
    {
        std::lock_guard<std::mutex> lock(task->mutex);
        task->done = true;
    }
    task->cv.notify_all();
}

// Work that can no longer reach a binder thread (the process's threads are gone).
void dropWork(const Work& work) {
    switch (work.kind) {
        case Work::kTransaction: {
            auto* txn = static_cast<Transaction*>(work.item);
            if (!txn->oneway()) txn->complete(STATUS_DEAD_OBJECT);
            txn->release();
            break;
        }
        case Work::kRelease:
            decStrong(static_cast<AIBinder*>(work.item));
            break;
        case Work::kDeath:
            delete static_cast<std::shared_ptr<DeathLink>*>(work.item);
            break;
        case Work::kTask:
            finishTask(static_cast<std::shared_ptr<Task>*>(work.item), false);
            break;
    }
    workFinished();
}

}  // namespace

Process::Process(ProcessId pid, std::string processName, size_t threadLimit)
    : id(pid), name(std::move(processName)), maxThreads(std::max<size_t>(1, threadLimit)) {}

bool Process::post(Work work) {
    std::unique_lock<std::mutex> lock(mutex);
    if (work.kind != Work::kRelease && !alive.load(std::memory_order_acquire)) return false;
    workStarted();
    if (threadsStopped) {
        lock.unlock();
        dropWork(work);
        return true;
    }
    if (work.kind == Work::kTransaction) {
        auto* txn = static_cast<Transaction*>(work.item);
        if (txn->oneway()) {
            // Oneway calls to one object are delivered one at a time, in order: later ones wait
            // on the object until the current one is done.
            AIBinder* node = txn->node;
            if (node->asyncActive) {
                txn->next = nullptr;
                if (node->asyncTail != nullptr) {
                    node->asyncTail->next = txn;
                } else {
                    node->asyncHead = txn;
                }
                node->asyncTail = txn;
                return true;
            }
            node->asyncActive = true;
        }
    }
    queue.push_back(work);
    queued.store(queue.size(), std::memory_order_release);
    if (queue.size() > idle && running < maxThreads && !stopping) spawnLocked();
    // A polling thread sees the work by itself.
    if (sleepers > 0) workCv.notify_one();
    return true;
}

void Process::spawnLocked() {
    ++running;
    // The thread keeps the process record alive: the last reference to a killed process may go
    // while one of its threads is still on its way out.
    threads.emplace_back([self = shared_from_this()] { self->workerLoop(); });
}

void Process::stopThreadsLocked() {
    stopping = true;
    if (running == 0) {
        threadsStopped = true;
    } else {
        owedExits = running;
        for (size_t i = 0; i < owedExits; ++i) workStarted();
    }
    workCv.notify_all();
}

void Process::workerLoop() {
    const ThreadContext saved = tls;
    tls = ThreadContext{};
    tls.process = this;
    tls.binderThread = true;

    std::unique_lock<std::mutex> lock(mutex);
    // Counted idle already, and the lock is not held: the end of the last call found the queue
    // empty, so the thread goes straight to polling without taking the lock again.
    bool polling = false;
    for (;;) {
        if (polling || (queue.empty() && !stopping)) {
            // Poll a little before sleeping; the poller counts as idle, so a poster does not
            // start another thread for work this one is about to take.
            if (!polling) {
                ++idle;
                lock.unlock();
            }
            polling = false;
            pollBriefly([this] { return queued.load(std::memory_order_acquire) != 0; });
            lock.lock();
            while (queue.empty() && !stopping) {
                ++sleepers;
                workCv.wait(lock);
                --sleepers;
            }
            --idle;
        }
        if (queue.empty()) break;  // stopping, and nothing left to do: the thread ends
        const Work work = queue.front();
        queue.pop_front();
        queued.store(queue.size(), std::memory_order_release);
        const bool live = alive.load(std::memory_order_acquire);
        if (!enterWork()) {
            // The program is ending: this thread stays here, holding nothing, until it does.
            workCv.wait(lock, [] { return false; });
        }

        if (work.kind != Work::kTransaction) {
            lock.unlock();
            switch (work.kind) {
                case Work::kRelease:
                    decStrong(static_cast<AIBinder*>(work.item));
                    break;
                case Work::kDeath: {
                    auto* link = static_cast<std::shared_ptr<DeathLink>*>(work.item);
                    if (live) deliverDeath(*link);
                    delete link;
                    break;
                }
                case Work::kTask:
                    finishTask(static_cast<std::shared_ptr<Task>*>(work.item), live);
                    break;
                case Work::kTransaction:
                    break;
            }
            leaveWork();
            workFinished();
            lock.lock();
            continue;
        }

        auto* txn = static_cast<Transaction*>(work.item);
        const bool sync = !txn->oneway();
        if (live && sync) linkInflight(this, txn);
        lock.unlock();

        if (live) {
            serveTransaction(txn);
        } else if (sync) {
            txn->complete(STATUS_DEAD_OBJECT);
        }

        AIBinder* node = txn->node;
        if (sync) {
            // Dropped here so that a last reference goes away in the object's own process; a
            // synchronous call's node plays no part in what follows under the lock.
            txn->node = nullptr;
            decStrong(node);
        }
        lock.lock();
        if (live && sync) unlinkInflight(this, txn);
        if (!sync) {
            Transaction* next = node->asyncHead;
            if (next != nullptr) {
                node->asyncHead = next->next;
                if (node->asyncHead == nullptr) node->asyncTail = nullptr;
                next->next = nullptr;
                queue.push_back(Work{Work::kTransaction, next});
                queued.store(queue.size(), std::memory_order_release);
            } else {
                node->asyncActive = false;
            }
        }
        txn->node = nullptr;
        // Nothing left to do: this thread is idle from here on, and polls once it has let go of
        // the call (which runs no user code).
        polling = queue.empty() && !stopping;
        if (polling) ++idle;
        lock.unlock();
        if (!sync) decStrong(node);
        txn->release();
        leaveWork();
        workFinished();
        if (!polling) lock.lock();
    }
    // Only a killed process's threads get here. The last one out leaves the work that still
    // comes (reference drops) to the threads that post it.
    --running;
    if (running == 0) threadsStopped = true;
    const bool owed = owedExits > 0;
    if (owed) --owedExits;
    const std::thread::id self = std::this_thread::get_id();
    for (auto it = threads.begin(); it != threads.end(); ++it) {
        if (it->get_id() != self) continue;
        World& w = world();
        std::lock_guard<std::mutex> exitedLock(w.exitedMutex);
        // Nobody joins once the program is exiting.
        if (w.exiting.load(std::memory_order_seq_cst)) {
            it->detach();
        } else {
            w.exited.push_back(std::move(*it));
        }
        threads.erase(it);
        break;
    }
    lock.unlock();
    tls = saved;
    if (owed) workFinished();
}

}  // namespace binder_host::internal

using namespace binder_host::internal;

namespace binder_host {

ProcessId createProcess(const std::string& name, size_t maxBinderThreads) {
    joinExitedThreads();
    World& w = world();
    std::lock_guard<std::mutex> lock(w.registryMutex);
    const ProcessId pid = w.nextPid++;
    w.processes[pid] = std::make_shared<Process>(pid, name, maxBinderThreads);
    return pid;
}

ProcessId currentProcess() {
    return internal::currentProcess()->id;
}

std::string processName(ProcessId pid) {
    std::shared_ptr<Process> process = findProcess(pid);
    return process == nullptr ? std::string() : process->name;
}

bool onBinderThread() {
    return tls.binderThread;
}

bool runInProcess(ProcessId pid, const std::function<void()>& fn) {
    std::shared_ptr<Process> process = findProcess(pid);
    if (process == nullptr || !process->alive.load(std::memory_order_acquire)) return false;
    std::thread thread([&] {
        tls.process = process.get();
        fn();
    });
    thread.join();
    return true;
}

void killProcess(ProcessId pid) {
    if (pid == kDefaultProcess) return;
    joinExitedThreads();
    World& w = world();
    std::shared_ptr<Process> process;
    {
        std::lock_guard<std::mutex> lock(w.registryMutex);
        auto it = w.processes.find(pid);
        if (it == w.processes.end()) return;  // unknown, or killed already
        process = it->second;
        w.processes.erase(it);
        // Forget the dead that nothing refers to any more.
        for (auto dead = w.deadProcesses.begin(); dead != w.deadProcesses.end();) {
            dead = dead->second.expired() ? w.deadProcesses.erase(dead) : std::next(dead);
        }
        w.deadProcesses[pid] = process;
    }
    std::vector<std::shared_ptr<DeathLink>> notices;
    std::vector<AIBinder*> releases;
    {
        std::lock_guard<std::mutex> lock(process->mutex);
        if (!process->alive.load(std::memory_order_acquire)) return;
        {
            std::lock_guard<std::mutex> deathLock(w.deathMutex);
            process->alive.store(false, std::memory_order_release);
            collectDeathNoticesLocked(process.get(), &notices);
            // A dead process hears of no further deaths.
            const auto held = process->heldLinks;
            for (const auto& link : held) detachLinkLocked(link);
        }
        // Callers waiting on this process, queued or being served, get their answer now; the
        // binder threads drop the queued work and discard replies that come too late.
        for (size_t i = 0; i < process->queue.size(); ++i) {
            const Work& work = process->queue[i];
            if (work.kind != Work::kTransaction) continue;
            auto* txn = static_cast<Transaction*>(work.item);
            if (!txn->oneway()) txn->complete(STATUS_DEAD_OBJECT);
        }
        for (Transaction* txn = process->inflight; txn != nullptr; txn = txn->next) {
            txn->complete(STATUS_DEAD_OBJECT);
        }
        // Every reference it held on other processes' objects goes.
        for (const auto& entry : process->proxies) {
            if (entry.second->holdsNodeRef.exchange(false, std::memory_order_acq_rel)) {
                releases.push_back(entry.first);
            }
        }
        // Its threads finish the work already queued (dropping what no longer matters) and end.
        process->stopThreadsLocked();
    }
    for (AIBinder* node : releases) postRelease(node);
    for (const auto& link : notices) {
        auto* item = new std::shared_ptr<DeathLink>(link);
        if (!link->holder->post(Work{Work::kDeath, item})) delete item;
    }
    dropServicesOf(process.get());
}

bool isAlive(ProcessId pid) {
    std::shared_ptr<Process> process = findProcess(pid);
    return process != nullptr && process->alive.load(std::memory_order_acquire);
}

bool drain(int64_t timeoutMs) {
    World& w = world();
    bool drained;
    {
        std::unique_lock<std::mutex> lock(w.drainMutex);
        w.drainWaiters.fetch_add(1);
        drained = w.drainCv.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                     [&w] { return w.pending.load() == 0; });
        w.drainWaiters.fetch_sub(1);
    }
    // Threads of killed processes count as work until they end: once drained, they are gone.
    joinExitedThreads();
    return drained;
}

void reset() {
    World& w = world();
    std::vector<ProcessId> others;
    {
        std::lock_guard<std::mutex> lock(w.registryMutex);
        for (const auto& entry : w.processes) {
            if (entry.first != kDefaultProcess) others.push_back(entry.first);
        }
    }
    for (ProcessId pid : others) killProcess(pid);
    drain(10000);
    clearServices();
    drain(10000);
    {
        // The registry forgets the dead, whatever may still refer to them.
        std::lock_guard<std::mutex> lock(w.registryMutex);
        w.deadProcesses.clear();
    }
    {
        std::lock_guard<std::mutex> lock(w.defaultProcess->mutex);
        w.defaultProcess->maxThreads = kDefaultProcessMaxThreads;
        w.defaultProcess->poolStarted = false;
    }
    drain(10000);
}

size_t liveBinderCount(ProcessId pid) {
    std::shared_ptr<Process> process = findProcess(pid);
    if (process == nullptr) return 0;
    return static_cast<size_t>(process->liveNodes.load());
}

}  // namespace binder_host

extern "C" {

void ABinderProcess_startThreadPool(void) {
    Process* process = binder_host::internal::currentProcess();
    std::lock_guard<std::mutex> lock(process->mutex);
    process->poolStarted = true;
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    Process* process = binder_host::internal::currentProcess();
    std::lock_guard<std::mutex> lock(process->mutex);
    process->maxThreads = std::max<size_t>(1, numThreads);
    return true;
}

bool ABinderProcess_isThreadPoolStarted(void) {
    Process* process = binder_host::internal::currentProcess();
    std::lock_guard<std::mutex> lock(process->mutex);
    return process->poolStarted;
}

void ABinderProcess_joinThreadPool(void) {
    std::shared_ptr<Process> process = binder_host::internal::currentProcess()->shared_from_this();
    {
        std::lock_guard<std::mutex> lock(process->mutex);
        process->poolStarted = true;
        if (process->stopping) return;  // killed: there is no pool to join any more
        ++process->running;
    }
    process->workerLoop();
}

}  // extern "C"
