#pragma once

// Internal model of the emulated binder world.
//
// Objects
//   AIBinder  one type for both kinds of binder handle. A local binder (`node == this`) is the
//             object itself, owned by the process that created it. A proxy stands for a node of
//             another process inside one holder process; there is at most one live proxy per
//             (holder process, node), like the driver's handles.
//   AParcel   data bytes plus an object table (offset -> AIBinder*, one strong reference each).
//   Process   an emulated process: its work queue, binder threads, proxy table, in-flight
//             transactions and death bookkeeping.
//
// References
//   strong    counts every holder of that handle: user references, parcel table entries and, for
//             a node, one reference per proxy that holds it (and per service registration and
//             queued transaction). The last strong reference of a node runs the class's
//             onDestroy; the last of a proxy drops the proxy's reference on its node, which is
//             delivered to the node's process asynchronously, like the driver's BR_RELEASE.
//   weak      keeps the memory: 1 while strong > 0, plus one per AIBinder_Weak and per proxy of
//             a node (a proxy reads its node's class and process even after its strong
//             reference is gone).
//
// Locks (never held while user code runs)
//   World::registryMutex  the process table
//   World::serviceMutex   service registry and manifest; may be followed by Process::mutex
//   Process::mutex        queue, threads, proxy table, in-flight list, oneway state of its nodes;
//                         may be followed by World::deathMutex, Transaction::mutex and
//                         World::exitedMutex
//   World::deathMutex     death links
//   Transaction::mutex    completion of one synchronous transaction

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_shell.h>
#include <android/binder_status.h>
#include <binder_host/process.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    // The binder_status_t of EX_TRANSACTION_FAILED or the code of EX_SERVICE_SPECIFIC.
    int32_t errorCode = 0;
    std::string message;
};

struct AIBinder_Class {
    std::string descriptor;
    std::u16string descriptor16;  // compared against the interface token of each request
    AIBinder_Class_onCreate onCreate = nullptr;
    AIBinder_Class_onDestroy onDestroy = nullptr;
    AIBinder_Class_onTransact onTransact = nullptr;
    AIBinder_onDump onDump = nullptr;
    AIBinder_handleShellCommand handleShellCommand = nullptr;
    bool writesHeader = true;
};

namespace binder_host::internal {
struct Process;
struct Transaction;
struct DeathLink;
}  // namespace binder_host::internal

struct AIBinder {
    AIBinder(std::shared_ptr<binder_host::internal::Process> process, AIBinder* node);
    ~AIBinder();

    bool isProxy() const { return node != this; }

    std::atomic<int32_t> strong{1};
    std::atomic<int32_t> weak{1};
    // Owner of a node, holder of a proxy. From here on, apart from the counts: every call takes
    // and drops a reference on its node on two threads, which must not make the binder thread
    // fetch again the class and process it reads for each call.
    alignas(64) const std::shared_ptr<binder_host::internal::Process> process;
    // The object a proxy stands for; `this` for a node.
    AIBinder* const node;
    std::atomic<const AIBinder_Class*> clazz{nullptr};

    // --- node only ---
    void* userData = nullptr;
    AIBinder* extension = nullptr;  // one strong reference; guarded by extensionMutex
    std::mutex extensionMutex;
    // Death links on this node (World::deathMutex).
    std::vector<std::shared_ptr<binder_host::internal::DeathLink>> links;
    // Oneway delivery (Process::mutex of the owner): one at a time, in order.
    bool asyncActive = false;
    binder_host::internal::Transaction* asyncHead = nullptr;
    binder_host::internal::Transaction* asyncTail = nullptr;

    // --- proxy only ---
    // Whether this proxy still holds its strong reference on the node. Cleared when the proxy
    // goes away or its holder process dies.
    std::atomic<bool> holdsNodeRef{false};
    std::atomic<int32_t> linkCount{0};  // death links made through this proxy
};

struct AIBinder_Weak {
    AIBinder* binder;
};

struct AIBinder_DeathRecipient {
    AIBinder_DeathRecipient_onBinderDied onDied = nullptr;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
    // Links made with this recipient (World::deathMutex).
    std::vector<std::shared_ptr<binder_host::internal::DeathLink>> links;
};

struct AParcel {
    struct Object {
        uint32_t offset;
        AIBinder* binder;  // one strong reference
    };

    AParcel() = default;
    AParcel(AParcel&& other) noexcept;
    AParcel& operator=(AParcel&& other) noexcept;
    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;
    ~AParcel();

    void clear();           // drops data and objects
    void releaseObjects();  // drops the object table (and its references)

    // Room for `n` more bytes at `pos`; returns where to write. Objects overlapped by the write
    // are dropped from the table (their bytes are being overwritten).
    uint8_t* reserve(size_t n);
    void commit(size_t n);  // advances pos by n and grows size
    binder_status_t writeRaw(const void* data, size_t len);
    binder_status_t readRaw(void* out, size_t len) const;
    size_t available() const { return pos < size ? size - pos : 0; }

    std::vector<uint8_t> buffer;  // storage; buffer.size() is the capacity
    size_t size = 0;
    mutable size_t pos = 0;
    std::vector<Object> objects;       // sorted by offset
    const AIBinder* target = nullptr;  // the binder a request was prepared for
};

namespace binder_host::internal {

constexpr size_t kDefaultProcessMaxThreads = 15;
constexpr int32_t kMaxArrayLength = 1000000;

// A thread handing work to another one polls briefly before it sleeps: a round trip through two
// sleeping threads costs two scheduler wake-ups, which dwarfs the work of a typical call.
constexpr std::chrono::microseconds kPollTime{20};

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#endif
}

// Spins until `ready()` or kPollTime has passed; returns ready().
template <typename Ready>
bool pollBriefly(Ready ready) {
    const auto deadline = std::chrono::steady_clock::now() + kPollTime;
    for (;;) {
        for (int i = 0; i < 32; ++i) {
            if (ready()) return true;
            cpuRelax();
        }
        if (std::chrono::steady_clock::now() >= deadline) return ready();
    }
}

struct Transaction {
    std::atomic<int32_t> refs{1};
    // One strong reference, dropped by the binder thread once the call is served (so a last
    // reference goes away in the object's own process) or by release() if it never was.
    AIBinder* node = nullptr;
    transaction_code_t code = 0;
    binder_flags_t flags = 0;
    ProcessId senderPid = 0;
    AParcel request;
    AParcel reply;
    // Completion of a synchronous transaction. The caller polls `state` and reads `status` next
    // to it, on a cache line of their own: the completing thread touches nothing else the caller
    // reads. Only a caller that has polled in vain sleeps, and only then does the completing
    // thread take `mutex` to wake it.
    enum State : uint8_t { kPending, kCompleting, kDone };
    alignas(64) std::atomic<uint8_t> state{kPending};
    std::atomic<bool> sleeping{false};  // the caller is (about to be) waiting on `cv`
    binder_status_t status = STATUS_OK;
    alignas(64) std::mutex mutex;
    std::condition_variable cv;
    // Intrusive links: the node's oneway queue or the process's in-flight list.
    Transaction* next = nullptr;
    Transaction* prev = nullptr;

    bool oneway() const { return (flags & FLAG_ONEWAY) != 0; }
    // Sets the result once; false if it was already set (the caller gave up).
    bool complete(binder_status_t result);
    // The caller's wait for complete(); returns the result.
    binder_status_t awaitCompletion();
    // Makes a finished record ready for another call.
    void resetCompletion();
    void release();
};

struct DeathLink {
    AIBinder_DeathRecipient* recipient;
    void* cookie;
    AIBinder* proxy;  // the proxy linked through (not a reference; links die with it)
    AIBinder* node;
    std::shared_ptr<Process> holder;
    bool active = true;
};

struct Task {
    std::function<void()> fn;
    std::mutex mutex;
    std::condition_variable cv;
    bool done = false;
};

struct Work {
    enum Kind : uint8_t { kTransaction, kRelease, kDeath, kTask } kind;
    void* item;  // Transaction*, AIBinder* node, std::shared_ptr<DeathLink>*, std::shared_ptr<Task>*
};

// A process's queue of work: a ring that grows by doubling and never shrinks, so that a steady
// stream of calls queues and takes work without allocating (a deque allocates and frees a block
// each time its ends cross one).
class WorkQueue {
  public:
    bool empty() const { return count_ == 0; }
    size_t size() const { return count_; }
    const Work& front() const { return slots_[head_]; }
    const Work& operator[](size_t i) const { return slots_[(head_ + i) & (slots_.size() - 1)]; }
    void push_back(const Work& work) {
        if (count_ == slots_.size()) grow();
        slots_[(head_ + count_) & (slots_.size() - 1)] = work;
        ++count_;
    }
    void pop_front() {
        head_ = (head_ + 1) & (slots_.size() - 1);
        --count_;
    }

  private:
    void grow() {
        std::vector<Work> bigger(slots_.empty() ? 16 : slots_.size() * 2);
        for (size_t i = 0; i < count_; ++i) bigger[i] = (*this)[i];
        slots_.swap(bigger);
        head_ = 0;
    }

    std::vector<Work> slots_;  // a power of two in size
    size_t head_ = 0;
    size_t count_ = 0;
};

struct Process : std::enable_shared_from_this<Process> {
    Process(ProcessId id, std::string name, size_t maxThreads);

    // Queues work for a binder thread. Transactions, death notices and tasks need a live
    // process (false otherwise); releases are always accepted and, once the threads are gone,
    // run on the calling thread.
    bool post(Work work);
    // The loop of a binder thread; the caller has counted it in `running`. Returns once the
    // process is stopping and its queue is empty.
    void workerLoop();
    void spawnLocked();
    // Lets the binder threads finish what is queued and end (called once, by killProcess, with
    // `mutex` held). Each thread still running owes drain() its end.
    void stopThreadsLocked();

    const ProcessId id;
    const std::string name;
    std::atomic<bool> alive{true};

    std::mutex mutex;
    std::condition_variable workCv;
    WorkQueue queue;
    size_t maxThreads;
    size_t running = 0;    // threads inside workerLoop (started here or joined the pool)
    size_t idle = 0;       // threads polling or sleeping for work
    size_t sleepers = 0;   // threads waiting on workCv: a post wakes one only if there is one
    size_t owedExits = 0;  // ends of threads drain() waits for (see stopThreadsLocked)
    bool stopping = false;
    bool threadsStopped = false;  // stopping, and every thread has left: work runs inline
    bool poolStarted = false;
    std::vector<std::thread> threads;                  // started here and not yet ended
    std::unordered_map<AIBinder*, AIBinder*> proxies;  // node -> this process's proxy
    Transaction* inflight = nullptr;                   // synchronous transactions being served

    std::atomic<int64_t> liveNodes{0};

    // queue.size(), readable without the mutex: idle binder threads poll it. On a cache line of
    // its own, so that their polling does not take away the lines a poster writes under the lock.
    alignas(64) std::atomic<size_t> queued{0};

    // World::deathMutex
    std::vector<std::shared_ptr<DeathLink>> heldLinks;  // links this process made
    std::set<AIBinder*> linkedNodes;                    // nodes of this process with links
};

struct ThreadContext {
    Process* process = nullptr;  // null: the default process
    bool binderThread = false;
    bool handlingTransaction = false;
    bool inWork = false;  // a binder thread running a work item (see World::busy)
    ProcessId callingPid = 0;
};

extern thread_local ThreadContext tls;

struct World {
    std::mutex registryMutex;
    std::map<ProcessId, std::shared_ptr<Process>> processes;  // the living
    // Killed processes, findable for as long as anything (a binder, a thread) keeps their
    // record; the registry itself keeps nothing of them.
    std::map<ProcessId, std::weak_ptr<Process>> deadProcesses;
    ProcessId nextPid = kDefaultProcess + 1;
    std::shared_ptr<Process> defaultProcess;

    // Work queued or running anywhere, for drain().
    std::atomic<int64_t> pending{0};
    std::atomic<int32_t> drainWaiters{0};
    std::mutex drainMutex;
    std::condition_variable drainCv;

    std::mutex deathMutex;

    std::mutex serviceMutex;
    std::condition_variable serviceCv;
    std::map<std::string, AIBinder*> services;  // instance -> node (one strong reference)
    std::set<std::string> manifest;

    std::mutex classMutex;
    std::vector<std::unique_ptr<AIBinder_Class>> classes;

    // The program is exiting: binder threads take up no more work, so that no callback runs
    // into objects the static destructors are tearing down. `busy` counts the binder threads
    // running a work item; exit waits a moment for them.
    std::atomic<bool> exiting{false};
    std::atomic<int32_t> busy{0};

    // Binder threads of killed processes that have ended, waiting to be joined (a thread cannot
    // join itself). Taken after Process::mutex.
    std::mutex exitedMutex;
    std::vector<std::thread> exited;
};

World& world();
Process* currentProcess();
std::shared_ptr<Process> findProcess(ProcessId pid);

void workStarted();
void workFinished();
// Joins the binder threads that have ended. Never called with a lock held.
void joinExitedThreads();

// Reference counting.
void incStrong(AIBinder* binder);
void decStrong(AIBinder* binder);
bool tryIncStrong(AIBinder* binder);
void incWeak(AIBinder* binder);
void decWeak(AIBinder* binder);
// Delivers a dropped node reference to the node's process.
void postRelease(AIBinder* node);

// The handle `process` uses for `node`: the node itself when the process owns it, else its proxy
// (created if needed). Returns one strong reference. The caller must hold a reference that keeps
// the node alive.
AIBinder* handleIn(Process* process, AIBinder* node);
// Rewrites the object table of a parcel that moves into `process`.
void translateObjects(AParcel* parcel, Process* process);

// Runs one transaction on its node (on a binder thread of the node's process).
void serveTransaction(Transaction* txn);
// Fires one death notice (on a binder thread of the process that linked).
void deliverDeath(const std::shared_ptr<DeathLink>& link);
// Death bookkeeping of a dying process (called with World::deathMutex held).
void collectDeathNoticesLocked(Process* process, std::vector<std::shared_ptr<DeathLink>>* out);
void detachLinkLocked(const std::shared_ptr<DeathLink>& link);

// Service manager part of killProcess and reset.
void dropServicesOf(Process* process);
void clearServices();

// Parcels and buffers recycled per thread: a call's request and reply parcels, and the byte
// buffers they carry between the caller and the binder thread, are reused by the next call
// instead of being allocated again.
AParcel* newParcel();
void recycleParcel(AParcel* parcel);
// A binder thread's spare buffer becomes a reply's storage; a served request's buffer becomes
// the next spare.
void lendSpareBuffer(AParcel* reply);
void keepSpareBuffer(AParcel* served);

// Parcel helpers shared with the transaction code.
binder_status_t writeInterfaceToken(AParcel* parcel, const AIBinder_Class* clazz);
binder_status_t checkInterfaceToken(const AParcel* parcel, const AIBinder_Class* clazz);

}  // namespace binder_host::internal
