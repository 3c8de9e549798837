// AStatus and ndk::ScopedAStatus, SharedRefBase, SpAIBinder, weak binders and the Bn/Bp
// interface helpers.

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>

#include "BinderTestSupport.h"

namespace {

using binder_test::BinderTest;

TEST(StatusTest, EachAccessorAnswersOnlyForItsOwnKindOfFailure) {
    struct Row {
        AStatus* status;
        binder_exception_t exception;
        binder_status_t transactionStatus;
        int32_t serviceSpecific;
        const char* message;
    };
    const Row rows[] = {
            {AStatus_fromStatus(STATUS_OK), EX_NONE, STATUS_OK, 0, ""},
            {AStatus_fromStatus(STATUS_DEAD_OBJECT), EX_TRANSACTION_FAILED, STATUS_DEAD_OBJECT, 0,
             ""},
            // Values outside the status list are not passed through.
            {AStatus_fromStatus(-12345), EX_TRANSACTION_FAILED, STATUS_UNKNOWN_ERROR, 0, ""},
            {AStatus_fromServiceSpecificErrorWithMessage(-3, "m"), EX_SERVICE_SPECIFIC, STATUS_OK,
             -3, "m"},
            {AStatus_fromServiceSpecificError(0), EX_SERVICE_SPECIFIC, STATUS_OK, 0, ""},
            {AStatus_fromExceptionCode(EX_TRANSACTION_FAILED), EX_TRANSACTION_FAILED,
             STATUS_FAILED_TRANSACTION, 0, ""},
            {AStatus_fromExceptionCode(-77), EX_TRANSACTION_FAILED, STATUS_FAILED_TRANSACTION, 0,
             ""},
            {AStatus_fromExceptionCodeWithMessage(EX_NONE, "fine"), EX_NONE, STATUS_OK, 0, "fine"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.exception == EX_NONE, AStatus_isOk(row.status));
        EXPECT_EQ(row.exception, AStatus_getExceptionCode(row.status));
        EXPECT_EQ(row.transactionStatus, AStatus_getStatus(row.status));
        EXPECT_EQ(row.serviceSpecific, AStatus_getServiceSpecificError(row.status));
        ASSERT_NE(nullptr, AStatus_getMessage(row.status));
        EXPECT_STREQ(row.message, AStatus_getMessage(row.status));
        AStatus_delete(row.status);
    }
    EXPECT_FALSE(AStatus_isOk(nullptr));
    EXPECT_STREQ("", AStatus_getMessage(nullptr));
    EXPECT_FALSE(ndk::ScopedAStatus().isOk());
    // newOk may hand out one shared object; deleting it any number of times is fine.
    AStatus_delete(AStatus_newOk());
    AStatus_delete(AStatus_newOk());
    EXPECT_TRUE(AStatus_isOk(AStatus_newOk()));

    EXPECT_EQ("No error", ndk::ScopedAStatus::ok().getDescription());
    const std::string specific =
            ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "boom").getDescription();
    EXPECT_NE(std::string::npos, specific.find("EX_SERVICE_SPECIFIC"));
    EXPECT_NE(std::string::npos, specific.find("7: boom"));
    const std::string dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).getDescription();
    EXPECT_NE(std::string::npos, dead.find("STATUS_DEAD_OBJECT"));
    AStatus_deleteDescription(AStatus_getDescription(nullptr));
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
    }
    EXPECT_EQ(1, AIBinder_debugGetRefCount(binder.get()));
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

AIBinder_Class* thingClass() {
    static AIBinder_Class* clazz =
            ndk::ICInterface::defineClass(IThing::descriptor, binder_test::noop);
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

template <typename T, typename = void>
struct CanNew : std::false_type {};
template <typename T>
struct CanNew<T, std::void_t<decltype(new T(static_cast<int*>(nullptr)))>> : std::true_type {};
static_assert(!CanNew<BnThing>::value, "SharedRefBase objects must be created with make<T>()");

TEST(SharedRefBaseDeathTest, AnObjectThatNeverHadAnOwnerAbortsOnDestruction) {
    // Binder threads of earlier tests may be running: re-execute instead of a bare fork.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
            {
                int alive = 0;
                BnThing onStack(&alive);
            },
            "no ref created");
}

TEST_F(SpAIBinderTest, LocalInterfaceKeepsOneBinderWhileItIsHeld) {
    int alive = 0;
    std::shared_ptr<BnThing> thing = ndk::SharedRefBase::make<BnThing>(&alive);
    std::shared_ptr<BnThing> again = thing->ref<BnThing>();
    EXPECT_EQ(2, thing.use_count());  // one control block, not two owners
    again.reset();
    ndk::SpAIBinder first = thing->asBinder();
    EXPECT_EQ(first, thing->asBinder());
    EXPECT_EQ(1, thing->created);
    EXPECT_FALSE(thing->isRemote());
    EXPECT_EQ(thing, ndk::ICInterface::asInterface(first.get()));

    // The binder keeps the object alive after every other owner let go.
    thing.reset();
    EXPECT_EQ(1, alive);
    first.set(nullptr);
    EXPECT_EQ(0, alive);

    // Once the binder is gone, the next asBinder makes a new one.
    thing = ndk::SharedRefBase::make<BnThing>(&alive);
    thing->asBinder();
    thing->asBinder();
    EXPECT_EQ(2, thing->created);
}

}  // namespace
