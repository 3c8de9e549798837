// AIBinder: classes, references, proxies, transactions and death notification.

#include <android/binder_ibinder.h>
#include <android/binder_shell.h>
#include <android/binder_stability.h>

#include <unistd.h>

#include <algorithm>

#include "Internal.h"

namespace binder_host::internal {

// --- References ------------------------------------------------------------------------------

void incStrong(AIBinder* binder) {
    binder->strong.fetch_add(1, std::memory_order_relaxed);
}

bool tryIncStrong(AIBinder* binder) {
    int32_t count = binder->strong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (binder->strong.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                                 std::memory_order_relaxed)) {
            return true;
        }
    }
    return false;
}

void incWeak(AIBinder* binder) {
    binder->weak.fetch_add(1, std::memory_order_relaxed);
}

void decWeak(AIBinder* binder) {
    if (binder->weak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete binder;
}

namespace {

void destroyNode(AIBinder* node) {
    const AIBinder_Class* clazz = node->clazz.load(std::memory_order_acquire);
    if (clazz != nullptr && clazz->onDestroy != nullptr) clazz->onDestroy(node->userData);
    AIBinder* extension = nullptr;
    {
        std::lock_guard<std::mutex> lock(node->extensionMutex);
        std::swap(extension, node->extension);
    }
    if (extension != nullptr) decStrong(extension);
    node->process->liveNodes.fetch_sub(1, std::memory_order_relaxed);
    decWeak(node);
}

void destroyProxy(AIBinder* proxy) {
    Process* holder = proxy->process.get();
    {
        std::lock_guard<std::mutex> lock(holder->mutex);
        auto it = holder->proxies.find(proxy->node);
        // A new proxy may already have replaced this one (found with no strong references).
        if (it != holder->proxies.end() && it->second == proxy) holder->proxies.erase(it);
    }
    if (proxy->linkCount.load(std::memory_order_acquire) > 0) {
        // Links die with the proxy they were made through, without a notice.
        std::lock_guard<std::mutex> lock(world().deathMutex);
        std::vector<std::shared_ptr<DeathLink>> mine;
        for (const auto& link : proxy->node->links) {
            if (link->proxy == proxy) mine.push_back(link);
        }
        for (const auto& link : mine) detachLinkLocked(link);
    }
    if (proxy->holdsNodeRef.exchange(false, std::memory_order_acq_rel)) postRelease(proxy->node);
    decWeak(proxy);
}

}  // namespace

void decStrong(AIBinder* binder) {
    if (binder->strong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (binder->isProxy()) {
        destroyProxy(binder);
    } else {
        destroyNode(binder);
    }
}

AIBinder* handleIn(Process* process, AIBinder* node) {
    if (node->process.get() == process) {
        incStrong(node);
        return node;
    }
    std::lock_guard<std::mutex> lock(process->mutex);
    AIBinder*& slot = process->proxies[node];
    if (slot != nullptr && tryIncStrong(slot)) return slot;
    auto* proxy = new AIBinder(process->shared_from_this(), node);
    incWeak(node);
    // A dead process keeps nothing alive: its proxies never hold their node.
    if (process->alive.load(std::memory_order_acquire)) {
        incStrong(node);
        proxy->holdsNodeRef.store(true, std::memory_order_relaxed);
    }
    slot = proxy;
    return proxy;
}

void translateObjects(AParcel* parcel, Process* process) {
    for (AParcel::Object& object : parcel->objects) {
        AIBinder* before = object.binder;
        object.binder = handleIn(process, before->node);
        decStrong(before);
    }
}

// --- Transactions ----------------------------------------------------------------------------

bool Transaction::complete(binder_status_t result) {
    // The binder thread and killProcess may both complete a call: the first one claims it.
    uint8_t expected = kPending;
    if (!state.compare_exchange_strong(expected, kCompleting, std::memory_order_acquire,
                                       std::memory_order_relaxed)) {
        return false;
    }
    status = result;
    // Sequentially consistent with the caller's `sleeping` flag: either the caller sees kDone
    // before it sleeps, or this thread sees that it sleeps (or is about to) and wakes it.
    state.store(kDone, std::memory_order_seq_cst);
    if (sleeping.load(std::memory_order_seq_cst)) {
        // Taking the mutex orders the wake-up after the caller's last look at `state`.
        { std::lock_guard<std::mutex> lock(mutex); }
        cv.notify_one();
    }
    return true;
}

binder_status_t Transaction::awaitCompletion() {
    auto done = [this] { return state.load(std::memory_order_acquire) == kDone; };
    if (!pollBriefly(done)) {
        std::unique_lock<std::mutex> lock(mutex);
        sleeping.store(true, std::memory_order_seq_cst);
        while (state.load(std::memory_order_seq_cst) != kDone) cv.wait(lock);
        sleeping.store(false, std::memory_order_relaxed);
    }
    return status;
}

void Transaction::resetCompletion() {
    state.store(kPending, std::memory_order_relaxed);
    sleeping.store(false, std::memory_order_relaxed);
    status = STATUS_OK;
}

void Transaction::release() {
    if (refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (node != nullptr) decStrong(node);
    delete this;
}

void serveTransaction(Transaction* txn) {
    if (!txn->oneway()) lendSpareBuffer(&txn->reply);
    AIBinder* node = txn->node;
    const AIBinder_Class* clazz = node->clazz.load(std::memory_order_acquire);
    ThreadContext saved = tls;
    tls.handlingTransaction = true;
    tls.callingPid = txn->senderPid;

    binder_status_t status = STATUS_OK;
    txn->request.pos = 0;
    if (clazz->writesHeader) status = checkInterfaceToken(&txn->request, clazz);
    if (status == STATUS_OK) {
        status = clazz->onTransact(node, txn->code, &txn->request, &txn->reply);
    }
    txn->reply.pos = 0;

    tls = saved;
    // A process killed while it served the call sends no reply, as nothing else leaves it: the
    // caller gets STATUS_DEAD_OBJECT even if the kill has not reached this transaction yet.
    if (!txn->oneway()) {
        const bool alive = node->process->alive.load(std::memory_order_acquire);
        txn->complete(alive ? status : STATUS_DEAD_OBJECT);
    }
    // The request has been read: its binders are dropped here, in the object's process, and its
    // buffer serves this thread's next reply.
    txn->request.releaseObjects();
    keepSpareBuffer(&txn->request);
}

// --- Death links -----------------------------------------------------------------------------

namespace {

template <typename T>
void eraseOne(std::vector<T>& items, const T& item) {
    auto it = std::find(items.begin(), items.end(), item);
    if (it != items.end()) items.erase(it);
}

}  // namespace

void detachLinkLocked(const std::shared_ptr<DeathLink>& link) {
    if (!link->active) return;
    link->active = false;
    const std::shared_ptr<DeathLink> keep = link;  // the vectors below may hold the last copy
    AIBinder* node = keep->node;
    eraseOne(node->links, keep);
    if (node->links.empty()) node->process->linkedNodes.erase(node);
    eraseOne(keep->holder->heldLinks, keep);
    eraseOne(keep->recipient->links, keep);
    keep->proxy->linkCount.fetch_sub(1, std::memory_order_acq_rel);
}

void collectDeathNoticesLocked(Process* process, std::vector<std::shared_ptr<DeathLink>>* out) {
    for (AIBinder* node : process->linkedNodes) {
        for (const auto& link : node->links) {
            if (link->active) out->push_back(link);
        }
    }
}

void deliverDeath(const std::shared_ptr<DeathLink>& link) {
    AIBinder_DeathRecipient_onBinderDied onDied = nullptr;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
    void* cookie = nullptr;
    {
        std::lock_guard<std::mutex> lock(world().deathMutex);
        // Unlinked, its recipient deleted, or the linking process died in the meantime.
        if (!link->active) return;
        onDied = link->recipient->onDied;
        onUnlinked = link->recipient->onUnlinked;
        cookie = link->cookie;
        detachLinkLocked(link);
    }
    onDied(cookie);
    if (onUnlinked != nullptr) onUnlinked(cookie);
}

namespace {

// The calling thread's last transaction record, kept for its next call. The cache holds the
// caller's reference; the record is reused once the binder thread has let go of it too.
struct CachedTransaction {
    Transaction* txn = nullptr;
    ~CachedTransaction() {
        if (txn != nullptr) txn->release();
    }
};

thread_local CachedTransaction tCachedTransaction;

struct ParcelRecycler {
    void operator()(AParcel* parcel) const { recycleParcel(parcel); }
};
using ParcelPtr = std::unique_ptr<AParcel, ParcelRecycler>;

Transaction* takeTransaction() {
    Transaction* txn = tCachedTransaction.txn;
    if (txn == nullptr || txn->refs.load(std::memory_order_acquire) != 1) return new Transaction;
    tCachedTransaction.txn = nullptr;
    // A failed call leaves its reply behind, and a request too large to keep as a spare stays.
    txn->request.clear();
    txn->reply.clear();
    txn->resetCompletion();
    txn->next = txn->prev = nullptr;
    return txn;
}

void dropCallerReference(Transaction* txn) {
    if (tCachedTransaction.txn == nullptr) {
        tCachedTransaction.txn = txn;
    } else {
        txn->release();
    }
}

}  // namespace

}  // namespace binder_host::internal

using namespace binder_host::internal;

AIBinder::AIBinder(std::shared_ptr<Process> owner, AIBinder* target)
    : process(std::move(owner)), node(target == nullptr ? this : target) {}

AIBinder::~AIBinder() {
    if (isProxy()) decWeak(node);
}

extern "C" {

// --- Classes ---------------------------------------------------------------------------------

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onTransact == nullptr) return nullptr;
    auto clazz = std::make_unique<AIBinder_Class>();
    clazz->descriptor = interfaceDescriptor;
    // Descriptors are ASCII interface names; widen them unit by unit.
    for (unsigned char c : clazz->descriptor) clazz->descriptor16.push_back(c);
    clazz->onCreate = onCreate;
    clazz->onDestroy = onDestroy;
    clazz->onTransact = onTransact;
    World& w = world();
    std::lock_guard<std::mutex> lock(w.classMutex);
    w.classes.push_back(std::move(clazz));
    return w.classes.back().get();
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) clazz->onDump = onDump;
}

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand) {
    if (clazz != nullptr) clazz->handleShellCommand = handleShellCommand;
}

void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) {
    if (clazz != nullptr) clazz->writesHeader = false;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz == nullptr ? nullptr : clazz->descriptor.c_str();
}

// --- Objects ---------------------------------------------------------------------------------

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) return nullptr;
    Process* process = currentProcess();
    void* userData = clazz->onCreate != nullptr ? clazz->onCreate(args) : args;
    auto* binder = new AIBinder(process->shared_from_this(), nullptr);
    binder->clazz.store(clazz, std::memory_order_release);
    binder->userData = userData;
    process->liveNodes.fetch_add(1, std::memory_order_relaxed);
    return binder;
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->isProxy();
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    return binder->node->process->alive.load(std::memory_order_acquire);
}

binder_status_t AIBinder_ping(AIBinder* binder) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isProxy()) return STATUS_OK;
    if (!binder->process->alive.load(std::memory_order_acquire) ||
        !binder->node->process->alive.load(std::memory_order_acquire)) {
        return STATUS_DEAD_OBJECT;
    }
    return STATUS_OK;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) incStrong(binder);
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr) decStrong(binder);
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
    return binder == nullptr ? -1 : binder->strong.load(std::memory_order_relaxed);
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    const AIBinder_Class* current = binder->clazz.load(std::memory_order_acquire);
    if (current == clazz) return true;
    // A binder keeps the first class it was given. Another class object, even one with the same
    // descriptor (two copies of the generated stubs in one process), fails as on a device: the
    // binder's user data belongs to the first class's interface.
    if (current != nullptr) return false;
    // A proxy learns its class here; the descriptor comes from the remote object, which a dead
    // process can no longer tell.
    if (!binder->node->process->alive.load(std::memory_order_acquire)) return false;
    const AIBinder_Class* remote = binder->node->clazz.load(std::memory_order_acquire);
    if (remote == nullptr || remote->descriptor != clazz->descriptor) return false;
    const AIBinder_Class* expected = nullptr;
    if (binder->clazz.compare_exchange_strong(expected, clazz, std::memory_order_acq_rel)) {
        return true;
    }
    return expected == clazz;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->clazz.load(std::memory_order_acquire);
}

void* AIBinder_getUserData(AIBinder* binder) {
    if (binder == nullptr || binder->isProxy()) return nullptr;
    return binder->userData;
}

uid_t AIBinder_getCallingUid(void) {
    return getuid();
}

pid_t AIBinder_getCallingPid(void) {
    if (tls.handlingTransaction) return tls.callingPid;
    return currentProcess()->id;
}

bool AIBinder_isHandlingTransaction(void) {
    return tls.handlingTransaction;
}

// --- Transactions ----------------------------------------------------------------------------

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
    if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
    *in = nullptr;
    const AIBinder_Class* clazz = binder->clazz.load(std::memory_order_acquire);
    if (clazz == nullptr) return STATUS_INVALID_OPERATION;
    ParcelPtr parcel(newParcel());
    parcel->target = binder;
    if (clazz->writesHeader) {
        binder_status_t status = writeInterfaceToken(parcel.get(), clazz);
        if (status != STATUS_OK) return status;
    }
    *in = parcel.release();
    return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
    if (in == nullptr) return STATUS_UNEXPECTED_NULL;
    ParcelPtr request(*in);  // always consumed
    *in = nullptr;
    if (out != nullptr) *out = nullptr;
    if (binder == nullptr || request == nullptr) return STATUS_UNEXPECTED_NULL;
    constexpr binder_flags_t kKnownFlags = FLAG_ONEWAY | FLAG_CLEAR_BUF | FLAG_PRIVATE_VENDOR;
    if ((flags & ~kKnownFlags) != 0) return STATUS_BAD_VALUE;
    if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
        return STATUS_UNKNOWN_TRANSACTION;
    }
    if (request->target != binder) return STATUS_BAD_VALUE;
    const bool oneway = (flags & FLAG_ONEWAY) != 0;
    if (!oneway && out == nullptr) return STATUS_UNEXPECTED_NULL;

    Process* caller = currentProcess();
    AIBinder* node = binder->node;
    Process* owner = node->process.get();

    if (!binder->isProxy() && owner == caller) {
        // Same process: straight to the object on this thread, still through the parcels.
        const AIBinder_Class* clazz = node->clazz.load(std::memory_order_acquire);
        request->pos = 0;
        binder_status_t status = STATUS_OK;
        if (clazz->writesHeader) status = checkInterfaceToken(request.get(), clazz);
        ParcelPtr reply(newParcel());
        if (status == STATUS_OK) status = clazz->onTransact(node, code, request.get(), reply.get());
        reply->pos = 0;
        if (status == STATUS_OK && out != nullptr) *out = reply.release();
        return status;
    }

    // Nothing leaves a dead process, and nothing reaches one.
    if (!caller->alive.load(std::memory_order_acquire) ||
        !binder->process->alive.load(std::memory_order_acquire) ||
        !owner->alive.load(std::memory_order_acquire)) {
        return STATUS_DEAD_OBJECT;
    }

    // The transaction keeps the object alive until it has been served. The sender's reference
    // may already be gone when its process is being killed under it: then the object may be on
    // its way to destruction, and must not be brought back for this call.
    if (!tryIncStrong(node)) return STATUS_DEAD_OBJECT;
    Transaction* txn = takeTransaction();
    txn->node = node;
    txn->code = code;
    txn->flags = flags;
    txn->senderPid = caller->id;
    // The bytes change hands rather than being copied: the caller has given the request up, so
    // nothing on its side can see the receiver's parcel. Only the binders need translating.
    txn->request = std::move(*request);
    request->target = nullptr;  // the emptied parcel object carries the reply back
    translateObjects(&txn->request, owner);
    txn->refs.store(oneway ? 1 : 2, std::memory_order_relaxed);  // binder thread (+ caller)

    if (!owner->post(Work{Work::kTransaction, txn})) {
        if (!oneway) txn->release();
        txn->release();
        return STATUS_DEAD_OBJECT;
    }
    if (oneway) {
        if (out != nullptr) *out = request.release();
        return STATUS_OK;
    }

    const binder_status_t status = txn->awaitCompletion();
    if (status == STATUS_OK) {
        // The binder thread is done with the reply; it moves over the same way.
        *request = std::move(txn->reply);
        translateObjects(request.get(), caller);
        *out = request.release();
    }
    dropCallerReference(txn);
    return status;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    AIBinder* node = binder->node;
    const AIBinder_Class* clazz = node->clazz.load(std::memory_order_acquire);
    if (clazz == nullptr || clazz->onDump == nullptr) return STATUS_OK;
    Process* owner = node->process.get();
    if (!binder->isProxy() && owner == currentProcess()) {
        return clazz->onDump(node, fd, args, numArgs);
    }
    if (!owner->alive.load(std::memory_order_acquire)) return STATUS_DEAD_OBJECT;
    // The dump runs in the object's process, like any call.
    auto task = std::make_shared<Task>();
    binder_status_t status = STATUS_DEAD_OBJECT;
    if (!tryIncStrong(node)) return STATUS_DEAD_OBJECT;
    task->fn = [&status, node, clazz, fd, args, numArgs] {
        status = clazz->onDump(node, fd, args, numArgs);
    };
    auto* raw = new std::shared_ptr<Task>(task);
    if (!owner->post(Work{Work::kTask, raw})) {
        delete raw;
        decStrong(node);
        return STATUS_DEAD_OBJECT;
    }
    std::unique_lock<std::mutex> lock(task->mutex);
    task->cv.wait(lock, [&] { return task->done; });
    lock.unlock();
    decStrong(node);
    return status;
}

// --- Weak references -------------------------------------------------------------------------

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    incWeak(binder);
    return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    decWeak(weakBinder->binder);
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return nullptr;
    return tryIncStrong(weakBinder->binder) ? weakBinder->binder : nullptr;
}

AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) {
    if (weak == nullptr) return nullptr;
    incWeak(weak->binder);
    return new AIBinder_Weak{weak->binder};
}

bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) {
    return std::less<const AIBinder*>()(lhs, rhs);
}

bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) {
    if (lhs == nullptr || rhs == nullptr) return lhs == nullptr && rhs != nullptr;
    return AIBinder_lt(lhs->binder, rhs->binder);
}

// --- Death notification ----------------------------------------------------------------------

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) return nullptr;
    auto* recipient = new AIBinder_DeathRecipient;
    recipient->onDied = onBinderDied;
    return recipient;
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    if (recipient == nullptr) return;
    std::lock_guard<std::mutex> lock(world().deathMutex);
    recipient->onUnlinked = onUnlinked;
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    std::vector<void*> cookies;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked;
    {
        std::lock_guard<std::mutex> lock(world().deathMutex);
        onUnlinked = recipient->onUnlinked;
        const auto links = recipient->links;
        for (const auto& link : links) {
            cookies.push_back(link->cookie);
            detachLinkLocked(link);
        }
    }
    if (onUnlinked != nullptr) {
        for (void* cookie : cookies) onUnlinked(cookie);
    }
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isProxy()) return STATUS_INVALID_OPERATION;
    AIBinder* node = binder->node;
    std::lock_guard<std::mutex> lock(world().deathMutex);
    // Checked under the death lock, which killProcess holds while it marks a process dead and
    // collects its links: a link is either collected or refused.
    if (!node->process->alive.load(std::memory_order_acquire) ||
        !binder->process->alive.load(std::memory_order_acquire)) {
        return STATUS_DEAD_OBJECT;
    }
    auto link = std::make_shared<DeathLink>();
    link->recipient = recipient;
    link->cookie = cookie;
    link->proxy = binder;
    link->node = node;
    link->holder = binder->process;
    node->links.push_back(link);
    node->process->linkedNodes.insert(node);
    binder->process->heldLinks.push_back(link);
    recipient->links.push_back(link);
    binder->linkCount.fetch_add(1, std::memory_order_acq_rel);
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (!binder->isProxy()) return STATUS_INVALID_OPERATION;
    AIBinder_DeathRecipient_onBinderUnlinked onUnlinked = nullptr;
    {
        std::lock_guard<std::mutex> lock(world().deathMutex);
        std::shared_ptr<DeathLink> found;
        for (const auto& link : binder->node->links) {
            if (link->proxy == binder && link->recipient == recipient && link->cookie == cookie) {
                found = link;
                break;
            }
        }
        if (found == nullptr) {
            return binder->node->process->alive.load(std::memory_order_acquire)
                           ? STATUS_NAME_NOT_FOUND
                           : STATUS_DEAD_OBJECT;
        }
        onUnlinked = recipient->onUnlinked;
        detachLinkLocked(found);
    }
    if (onUnlinked != nullptr) onUnlinked(cookie);
    return STATUS_OK;
}

// --- Extensions and stability ----------------------------------------------------------------

binder_status_t AIBinder_setExtension(AIBinder* binder, AIBinder* ext) {
    if (binder == nullptr || ext == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->isProxy()) return STATUS_INVALID_OPERATION;
    incStrong(ext);
    AIBinder* old = nullptr;
    {
        std::lock_guard<std::mutex> lock(binder->extensionMutex);
        old = binder->extension;
        binder->extension = ext;
    }
    if (old != nullptr) decStrong(old);
    return STATUS_OK;
}

binder_status_t AIBinder_getExtension(AIBinder* binder, AIBinder** outExt) {
    if (binder == nullptr || outExt == nullptr) return STATUS_UNEXPECTED_NULL;
    *outExt = nullptr;
    AIBinder* node = binder->node;
    if (binder->isProxy() && !node->process->alive.load(std::memory_order_acquire)) {
        return STATUS_DEAD_OBJECT;
    }
    std::lock_guard<std::mutex> lock(node->extensionMutex);
    if (node->extension != nullptr) *outExt = handleIn(currentProcess(), node->extension->node);
    return STATUS_OK;
}

void AIBinder_markVendorStability(AIBinder* /*binder*/) {}
void AIBinder_markSystemStability(AIBinder* /*binder*/) {}
void AIBinder_markVintfStability(AIBinder* /*binder*/) {}
void AIBinder_markCompilationUnitStability(AIBinder* /*binder*/) {}
void AIBinder_forceDowngradeToLocalStability(AIBinder* /*binder*/) {}

}  // extern "C"
