// SharedRefBase, SpAIBinder, weak binders and the Bn/Bp interface helpers.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "BinderTestSupport.h"

namespace {

using binder_test::BinderTest;

class Counted : public ndk::SharedRefBase {
  public:
    explicit Counted(int* alive) : mAlive(alive) { ++*mAlive; }
    ~Counted() override { --*mAlive; }

  private:
    int* mAlive;
};

// Whether `new T(args)` compiles.
template <typename T, typename = void>
struct CanNew : std::false_type {};
template <typename T>
struct CanNew<T, std::void_t<decltype(new T(static_cast<int*>(nullptr)))>> : std::true_type {};

static_assert(!CanNew<Counted>::value, "SharedRefBase objects must be created with make<T>()");

TEST(SharedRefBaseTest, MakeOwnsTheObjectAndRefSharesOwnership) {
    int alive = 0;
    std::shared_ptr<Counted> object = ndk::SharedRefBase::make<Counted>(&alive);
    EXPECT_EQ(1, alive);
    std::shared_ptr<Counted> again = object->ref<Counted>();
    EXPECT_EQ(object.get(), again.get());
    EXPECT_EQ(2, object.use_count());  // one control block, not two owners
    object.reset();
    EXPECT_EQ(1, alive);
    again.reset();
    EXPECT_EQ(0, alive);
}

TEST(SharedRefBaseDeathTest, AnObjectThatNeverHadAnOwnerAbortsOnDestruction) {
    // Binder threads of earlier tests may be running: re-execute instead of a bare fork.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                int alive = 0;
                Counted onStack(&alive);
            },
            "no ref created");
}

// A binder whose onDestroy replaces the very SpAIBinder being reset.
ndk::SpAIBinder* gRacingPointer = nullptr;

TEST(SpAIBinderDeathTest, SetAbortsWhenThePointerChangesWhileTheOldOneIsDropped) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                ndk::SpAIBinder holder;
                gRacingPointer = &holder;
                static AIBinder_Class* racing = AIBinder_Class_define(
                        "test.binder.Racing", [](void* args) { return args; },
                        [](void*) { *gRacingPointer->getR() = AIBinder_new(racing, nullptr); },
                        [](AIBinder*, transaction_code_t, const AParcel*,
                           AParcel*) -> binder_status_t { return STATUS_OK; });
                holder.set(AIBinder_new(racing, nullptr));
                holder.set(nullptr);
            },
            "Race detected.");
}

class SpAIBinderTest : public BinderTest {};

TEST_F(SpAIBinderTest, AdoptsOneReferenceAndCopiesTakeAnother) {
    std::atomic<int> destroyed{0};
    ndk::SpAIBinder binder = binder_test::makeBinder(nullptr, &destroyed);
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
    {
        ndk::SpAIBinder copy = binder;
        EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));
        ndk::SpAIBinder moved = std::move(copy);
        EXPECT_EQ(2, AIBinder_debugGetRefCount(binder.get()));
        EXPECT_EQ(binder, moved);
    }
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
    EXPECT_EQ(-1, AIBinder_debugGetRefCount(nullptr));
    AIBinder_incStrong(nullptr);  // ignored
    AIBinder_decStrong(nullptr);

    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    EXPECT_EQ(binder, weak.promote());
    binder.set(nullptr);
    EXPECT_EQ(1, destroyed.load());
    EXPECT_EQ(nullptr, weak.promote().get());  // gone for good, not resurrected
}

// A minimal interface built on the helpers, as generated code builds one.
class IThing : public ndk::ICInterface {
  public:
    static const char* descriptor;
};
const char* IThing::descriptor = "test.binder.IThing";

binder_status_t thingTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
    return STATUS_OK;
}
AIBinder_Class* thingClass() {
    static AIBinder_Class* clazz = ndk::ICInterface::defineClass(IThing::descriptor, thingTransact);
    return clazz;
}

class BnThing : public ndk::BnCInterface<IThing> {
  public:
    explicit BnThing(int* alive) : mAlive(alive) { ++*mAlive; }
    ~BnThing() override { --*mAlive; }
    int created = 0;

  protected:
    ndk::SpAIBinder createBinder() override {
        ++created;
        return ndk::SpAIBinder(AIBinder_new(thingClass(), static_cast<ICInterface*>(this)));
    }

  private:
    int* mAlive;
};

class BpThing : public ndk::BpCInterface<IThing> {
  public:
    explicit BpThing(const ndk::SpAIBinder& binder) : BpCInterface(binder) {}
};

TEST_F(SpAIBinderTest, LocalInterfaceKeepsOneBinderWhileItIsHeld) {
    int alive = 0;
    std::shared_ptr<BnThing> thing = ndk::SharedRefBase::make<BnThing>(&alive);
    ndk::SpAIBinder first = thing->asBinder();
    ndk::SpAIBinder second = thing->asBinder();
    EXPECT_EQ(first, second);
    EXPECT_EQ(1, thing->created);
    EXPECT_FALSE(thing->isRemote());
    EXPECT_EQ(thing, ndk::ICInterface::asInterface(first.get()));

    // The binder keeps the object alive after every other owner let go.
    BnThing* raw = thing.get();
    thing.reset();
    EXPECT_EQ(1, alive);
    second.set(nullptr);
    first.set(nullptr);
    EXPECT_EQ(0, alive);
    (void)raw;

    // Once the binder is gone, the next asBinder makes a new one.
    thing = ndk::SharedRefBase::make<BnThing>(&alive);
    thing->asBinder();
    thing->asBinder();
    EXPECT_EQ(2, thing->created);
}

TEST_F(SpAIBinderTest, ProxyInterfaceHoldsItsBinder) {
    int alive = 0;
    std::shared_ptr<BnThing> thing = ndk::SharedRefBase::make<BnThing>(&alive);
    auto proxy = ndk::SharedRefBase::make<BpThing>(thing->asBinder());
    EXPECT_EQ(thing->asBinder(), proxy->asBinder());
    EXPECT_FALSE(proxy->isRemote());  // a local binder, so not remote
    EXPECT_EQ(STATUS_OK, proxy->dump(-1, nullptr, 0));
}

}  // namespace
