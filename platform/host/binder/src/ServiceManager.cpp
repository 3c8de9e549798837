// The service manager and the emulated device manifest.

#include <android/binder_manager.h>

#include <chrono>
#include <cstring>

#include "Internal.h"

namespace binder_host::internal {

namespace {

// How long AServiceManager_getService waits for a service that is not registered yet. The
// platform waits several seconds; a second keeps host tests of missing services quick.
constexpr auto kGetServiceWait = std::chrono::seconds(1);

// The caller's handle for a registered service, or null. Called with serviceMutex held, which
// keeps the registration (and its reference) in place.
AIBinder* lookupLocked(World& w, const std::string& instance, Process* caller) {
    auto it = w.services.find(instance);
    if (it == w.services.end()) return nullptr;
    return handleIn(caller, it->second);
}

}  // namespace

void dropServicesOf(Process* process) {
    World& w = world();
    std::vector<AIBinder*> dropped;
    {
        std::lock_guard<std::mutex> lock(w.serviceMutex);
        for (auto it = w.services.begin(); it != w.services.end();) {
            if (it->second->process.get() == process) {
                dropped.push_back(it->second);
                it = w.services.erase(it);
            } else {
                ++it;
            }
        }
    }
    // Waiters in the dead process give up (see AServiceManager_waitForService).
    w.serviceCv.notify_all();
    for (AIBinder* node : dropped) postRelease(node);
}

void clearServices() {
    World& w = world();
    std::map<std::string, AIBinder*> dropped;
    {
        std::lock_guard<std::mutex> lock(w.serviceMutex);
        dropped.swap(w.services);
        w.manifest.clear();
    }
    for (const auto& entry : dropped) postRelease(entry.second);
}

}  // namespace binder_host::internal

using namespace binder_host::internal;

namespace binder_host {

void declareInstance(const std::string& instance) {
    World& w = world();
    std::lock_guard<std::mutex> lock(w.serviceMutex);
    w.manifest.insert(instance);
}

void undeclareInstance(const std::string& instance) {
    World& w = world();
    std::lock_guard<std::mutex> lock(w.serviceMutex);
    w.manifest.erase(instance);
}

}  // namespace binder_host

extern "C" {

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    Process* caller = binder_host::internal::currentProcess();
    AIBinder* node = binder->node;
    if (!caller->alive.load(std::memory_order_acquire) ||
        !node->process->alive.load(std::memory_order_acquire)) {
        return EX_TRANSACTION_FAILED;
    }
    World& w = world();
    incStrong(node);  // held by the registration
    AIBinder* replaced = nullptr;
    {
        std::lock_guard<std::mutex> lock(w.serviceMutex);
        AIBinder*& slot = w.services[instance];
        replaced = slot;
        slot = node;
    }
    w.serviceCv.notify_all();
    if (replaced != nullptr) postRelease(replaced);
    return EX_NONE;
}

binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance) {
    binder_exception_t exception = AServiceManager_addService(binder, instance);
    if (exception == EX_ILLEGAL_ARGUMENT) return STATUS_UNEXPECTED_NULL;
    return exception == EX_NONE ? STATUS_OK : STATUS_DEAD_OBJECT;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) return nullptr;
    Process* caller = binder_host::internal::currentProcess();
    if (!caller->alive.load(std::memory_order_acquire)) return nullptr;
    World& w = world();
    std::lock_guard<std::mutex> lock(w.serviceMutex);
    return lookupLocked(w, instance, caller);
}

AIBinder* AServiceManager_getService(const char* instance) {
    if (instance == nullptr) return nullptr;
    Process* caller = binder_host::internal::currentProcess();
    World& w = world();
    std::unique_lock<std::mutex> lock(w.serviceMutex);
    AIBinder* result = nullptr;
    w.serviceCv.wait_for(lock, kGetServiceWait, [&] {
        if (!caller->alive.load(std::memory_order_acquire)) return true;
        result = lookupLocked(w, instance, caller);
        return result != nullptr;
    });
    return result;
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    if (instance == nullptr) return nullptr;
    Process* caller = binder_host::internal::currentProcess();
    World& w = world();
    std::unique_lock<std::mutex> lock(w.serviceMutex);
    AIBinder* result = nullptr;
    // A process killed while waiting stops waiting (its threads must be able to finish).
    w.serviceCv.wait(lock, [&] {
        if (!caller->alive.load(std::memory_order_acquire)) return true;
        result = lookupLocked(w, instance, caller);
        return result != nullptr;
    });
    return result;
}

bool AServiceManager_isDeclared(const char* instance) {
    if (instance == nullptr) return false;
    World& w = world();
    std::lock_guard<std::mutex> lock(w.serviceMutex);
    return w.manifest.count(instance) != 0;
}

void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*)) {
    if (interface == nullptr || callback == nullptr) return;
    const std::string prefix = std::string(interface) + "/";
    std::vector<std::string> names;
    {
        World& w = world();
        std::lock_guard<std::mutex> lock(w.serviceMutex);
        for (const std::string& instance : w.manifest) {
            if (instance.compare(0, prefix.size(), prefix) == 0) {
                names.push_back(instance.substr(prefix.size()));
            }
        }
    }
    for (const std::string& name : names) callback(name.c_str(), context);
}

}  // extern "C"
