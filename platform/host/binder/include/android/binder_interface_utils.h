#pragma once

// C++ base classes of NDK binder interfaces: shared objects, interfaces, and their local (Bn) and
// proxy (Bp) sides.

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_shell.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

namespace ndk {

// An object owned through std::shared_ptr from birth. Create it with SharedRefBase::make<T>(...);
// ref() hands out further shared pointers (like shared_from_this). Plain `new T` does not
// compile, and an instance that never got its owning pointer (a stack or static object) aborts in
// its destructor: such an object handed to binder code would be freed twice.
class SharedRefBase {
  public:
    SharedRefBase() {}
    virtual ~SharedRefBase() {
        std::call_once(mOwnerOnce, [] {
            internal::fatal(__FILE__, __LINE__, "SharedRefBase: no ref created during lifetime");
        });
        if (!mSelf.expired()) {
            internal::fatal(__FILE__, __LINE__,
                            "SharedRefBase: destructed but still able to lock weak_ptr. Is this "
                            "object double-owned?");
        }
    }

    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    // The shared pointer that owns this object. The first call creates it.
    std::shared_ptr<SharedRefBase> ref() {
        std::shared_ptr<SharedRefBase> owner;
        std::call_once(mOwnerOnce, [&] {
            owner = std::shared_ptr<SharedRefBase>(this);
            mSelf = owner;
        });
        return owner ? owner : mSelf.lock();
    }

    template <typename CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* object = new T(std::forward<Args>(args)...);
        return object->template ref<T>();
    }

    static void operator delete(void* p) { std::free(p); }

  private:
    // Only make() may allocate: a raw `new T` elsewhere is a compile error.
    static void* operator new(size_t size) {
        void* p = std::malloc(size);
        if (p == nullptr) internal::fatal(__FILE__, __LINE__, "SharedRefBase: out of memory");
        return p;
    }

    std::once_flag mOwnerOnce;
    std::weak_ptr<SharedRefBase> mSelf;
};

// Base of every NDK interface (the counterpart of libbinder's IInterface).
class ICInterface : public SharedRefBase {
  public:
    ICInterface() {}
    virtual ~ICInterface() {}

    // The binder of this interface: the local binder (created once) or the proxied one.
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    // Dumps nothing unless overridden.
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
    // Handles nothing unless overridden.
    virtual binder_status_t handleShellCommand(int in, int out, int err, const char** argv,
                                               uint32_t argc);

    // The interface stored in the user data of a binder created by defineClass's class, or null.
    // No type check: use the generated fromBinder.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder);

    // Defines the class of an interface. The user data of each binder of this class owns a
    // shared pointer to its interface object, so a live binder keeps its object alive.
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact,
                                       const char** codeToFunction = nullptr,
                                       size_t functionCount = 0);

  private:
    struct ICInterfaceData {
        std::shared_ptr<ICInterface> interface;

        static std::shared_ptr<ICInterface> getInterface(AIBinder* binder);
        static void* onCreate(void* args);
        static void onDestroy(void* userData);
        static binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);
        static binder_status_t handleShellCommand(AIBinder* binder, int in, int out, int err,
                                                  const char** argv, uint32_t argc);
    };
};

// Local (native) side of INTERFACE.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    BnCInterface() {}
    virtual ~BnCInterface() {}

    // Creates the binder on first use and keeps only a weak reference to it, so the binder (and
    // with it this object) lives exactly as long as someone holds it.
    SpAIBinder asBinder() override final;
    bool isRemote() override final { return false; }

  protected:
    // Makes the binder; called only by asBinder, so one object never gets two binders.
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;  // guards mWeakBinder
    ScopedAIBinder_Weak mWeakBinder;
};

// Proxy side of INTERFACE.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
  public:
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}
    virtual ~BpCInterface() {}

    SpAIBinder asBinder() override final { return mBinder; }
    bool isRemote() override final { return AIBinder_isRemote(mBinder.get()); }
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        return AIBinder_dump(asBinder().get(), fd, args, numArgs);
    }

  private:
    SpAIBinder mBinder;
};

// --- Definitions -----------------------------------------------------------------------------

inline binder_status_t ICInterface::dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
    return STATUS_OK;
}

inline binder_status_t ICInterface::handleShellCommand(int /*in*/, int /*out*/, int /*err*/,
                                                       const char** /*argv*/, uint32_t /*argc*/) {
    return STATUS_OK;
}

inline std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    return ICInterfaceData::getInterface(binder);
}

inline AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                                AIBinder_Class_onTransact onTransact,
                                                const char** /*codeToFunction*/,
                                                size_t /*functionCount*/) {
    AIBinder_Class* clazz = AIBinder_Class_define(interfaceDescriptor, ICInterfaceData::onCreate,
                                                  ICInterfaceData::onDestroy, onTransact);
    if (clazz == nullptr) return nullptr;
    // Whether a subclass overrides dump or handleShellCommand is unknown here; the defaults
    // forward to the (harmless) base implementations.
    AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
    AIBinder_Class_setHandleShellCommand(clazz, ICInterfaceData::handleShellCommand);
    return clazz;
}

inline std::shared_ptr<ICInterface> ICInterface::ICInterfaceData::getInterface(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    void* userData = AIBinder_getUserData(binder);
    if (userData == nullptr) return nullptr;
    return static_cast<ICInterfaceData*>(userData)->interface;
}

inline void* ICInterface::ICInterfaceData::onCreate(void* args) {
    std::shared_ptr<ICInterface> interface = static_cast<ICInterface*>(args)->ref<ICInterface>();
    return new ICInterfaceData{std::move(interface)};
}

inline void ICInterface::ICInterfaceData::onDestroy(void* userData) {
    delete static_cast<ICInterfaceData*>(userData);
}

inline binder_status_t ICInterface::ICInterfaceData::onDump(AIBinder* binder, int fd,
                                                            const char** args, uint32_t numArgs) {
    std::shared_ptr<ICInterface> interface = getInterface(binder);
    if (interface == nullptr) return STATUS_UNEXPECTED_NULL;
    return interface->dump(fd, args, numArgs);
}

inline binder_status_t ICInterface::ICInterfaceData::handleShellCommand(AIBinder* binder, int in,
                                                                        int out, int err,
                                                                        const char** argv,
                                                                        uint32_t argc) {
    std::shared_ptr<ICInterface> interface = getInterface(binder);
    if (interface == nullptr) return STATUS_UNEXPECTED_NULL;
    return interface->handleShellCommand(in, out, err, argv, argc);
}

template <typename INTERFACE>
SpAIBinder BnCInterface<INTERFACE>::asBinder() {
    std::lock_guard<std::mutex> lock(mMutex);
    SpAIBinder binder;
    if (mWeakBinder.get() != nullptr) binder.set(AIBinder_Weak_promote(mWeakBinder.get()));
    if (binder.get() == nullptr) {
        binder = createBinder();
        mWeakBinder.set(AIBinder_Weak_new(binder.get()));
    }
    return binder;
}

}  // namespace ndk
