// The hand-written Torq stubs against the code the AIDL compiler generates from interface/: the
// same bytes on the wire from both sides for every method and parcelable field shape, and the
// callbacks that cross the other way.

#include <android/binder_manager.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>
#include <vector>

#include "TorqConformance.h"

namespace conformance {
namespace {

constexpr const char* kInstance = "vendor.quarn.hardware.torq.ITorq/default";

Hand::Data data(int32_t id, std::optional<std::string> value,
                std::optional<std::string> path = std::nullopt,
                std::optional<std::string> extra = std::nullopt) {
    Hand::Data d;
    d.id = id;
    d.subId = id / 2;
    d.value = std::move(value);
    d.path = std::move(path);
    d.extra = std::move(extra);
    return d;
}

// The field shapes both readers and writers must agree on: nullable fields absent, present but
// empty, and present; numbers at the extremes where a width or sign could be lost.
std::vector<Hand::Parcel> parcelShapes() {
    Hand::Parcel p;
    p.kind = INT32_MIN;
    p.flag = true;
    p.option = INT32_MAX;
    p.tag = 42;
    p.duration = INT64_MIN;
    p.param = -1;
    std::vector<Hand::Parcel> shapes(3, p);
    shapes[1].pkg = "";
    shapes[1].identity = "";
    shapes[1].extras.emplace();
    shapes[1].numbers.emplace();
    shapes[1].data = {data(0, "", "", "")};
    shapes[2].pkg = "com.example.camera";
    shapes[2].identity = "camera";
    shapes[2].extras = std::vector<std::optional<std::string>>{"a", std::nullopt, "", "b"};
    shapes[2].numbers = std::vector<int32_t>{1, -1, INT32_MAX, INT32_MIN};
    shapes[2].data = {data(1, "v", "/sys/x", "e"), data(2, std::nullopt, "/p"),
                      data(3, std::nullopt, std::nullopt, "only-extra")};
    return shapes;
}

constexpr const char* kListener = "conformance.listener";

// A callback object in a process of its own, registered as kListener, so that each side's stubs
// can wrap its own proxy of the same object (a process holds one side's stubs per binder).
void serveListener() {
    binder_host::runInProcess(binder_host::createProcess("listener"), [] {
        auto listener = ::ndk::SharedRefBase::make<Listener<Hand>>();
        ASSERT_EQ(EX_NONE, AServiceManager_addService(listener->asBinder().get(), kListener));
    });
}

// One process serves a HAL of side `Server`; the test thread calls it through side `Client`.
class TorqConformanceTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }

    // What the byte comparisons below cannot see: callbacks, which cross in the other direction
    // (the HAL's side calls the client's side), as an argument and inside a parcel.
    template <typename Client, typename Server>
    void callbacks() {
        std::shared_ptr<Hal<Server>> hal;
        binder_host::runInProcess(binder_host::createProcess("torq-hal"), [&] {
            hal = ::ndk::SharedRefBase::make<Hal<Server>>();
            ASSERT_EQ(EX_NONE, AServiceManager_addService(hal->asBinder().get(), kInstance));
        });
        std::shared_ptr<typename Client::ITorq> torq = Client::ITorq::fromBinder(
                ::ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
        ASSERT_NE(nullptr, torq);
        auto listener = ::ndk::SharedRefBase::make<Listener<Client>>();
        EXPECT_EQ(listener->asBinder(), listener->asBinder());  // one binder per object
        const Hand::Parcel sent = parcelShapes()[2];
        int32_t r = 0;
        ASSERT_TRUE(torq->listeningRegister(convertParcel<Client>(sent), listener, &r).isOk());
        EXPECT_EQ(7, r);
        EXPECT_TRUE(hal->hadCallback);
        EXPECT_EQ((std::vector<std::vector<Hand::Data>>{sent.data}), listener->waitFor(1));
        ASSERT_TRUE(torq->thermalListeningRegister({3}, listener, &r).isOk());
        EXPECT_TRUE(hal->hadCallback);
        ASSERT_TRUE(torq->thermalListeningRegister({}, nullptr, &r).isOk());
        EXPECT_FALSE(hal->hadCallback);

        typename Client::Parcel withCallback = convertParcel<Client>(sent);
        withCallback.callback = listener;
        ASSERT_TRUE(torq->request(withCallback, &r).isOk());
        EXPECT_TRUE(hal->parcelCallbackRemote);
    }
};

TEST_F(TorqConformanceTest, GeneratedClientAndHandWrittenHalCallEachOther) {
    callbacks<Gen, Hand>();
}

TEST_F(TorqConformanceTest, HandWrittenClientAndGeneratedHalCallEachOther) {
    callbacks<Hand, Gen>();
}

// --- Bytes ---------------------------------------------------------------------------------------

// The int32 words of a parcel from `from` to its end (binder objects read as their words).
std::vector<int32_t> words(const AParcel* parcel, int32_t from = 0) {
    std::vector<int32_t> out;
    AParcel_setDataPosition(parcel, from);
    int32_t word = 0;
    while (AParcel_readInt32(parcel, &word) == STATUS_OK) out.push_back(word);
    return out;
}

// A raw binder with the HAL's descriptor that keeps the request words of each call and answers
// with an empty success (status header, then zeros: 0, empty vector or empty string).
struct Recorder {
    std::mutex mutex;
    std::map<transaction_code_t, std::vector<int32_t>> requests;

    static AIBinder_Class* clazz() {
        static AIBinder_Class* c = AIBinder_Class_define(
                Hand::ITorq::descriptor, [](void* args) { return args; }, [](void*) {},
                [](AIBinder* binder, transaction_code_t code, const AParcel* in,
                   AParcel* out) -> binder_status_t {
                    auto* self = static_cast<Recorder*>(AIBinder_getUserData(binder));
                    std::vector<int32_t> request = words(in, AParcel_getDataPosition(in));
                    {
                        std::lock_guard<std::mutex> lock(self->mutex);
                        self->requests[code] = std::move(request);
                    }
                    ::ndk::ScopedAStatus ok = ::ndk::ScopedAStatus::ok();
                    AParcel_writeStatusHeader(out, ok.get());
                    AParcel_writeInt32(out, 0);
                    return AParcel_writeInt32(out, 0);
                });
        return c;
    }
};

// Calls every method of the recorder registered as kInstance with the same arguments, the parcels
// in each of their shapes (the listener of kListener as callback, or none), and returns the
// request words per code.
template <typename S>
std::map<transaction_code_t, std::vector<int32_t>> requestsOf(Recorder* recorder,
                                                              bool withCallback) {
    {
        std::lock_guard<std::mutex> lock(recorder->mutex);
        recorder->requests.clear();
    }
    std::shared_ptr<typename S::ITorq> torq =
            S::ITorq::fromBinder(::ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
    EXPECT_NE(nullptr, torq);
    if (torq == nullptr) return {};
    const std::shared_ptr<typename S::ICallback> callback =
            withCallback ? S::ICallback::fromBinder(
                                   ::ndk::SpAIBinder(AServiceManager_checkService(kListener)))
                         : nullptr;
    EXPECT_EQ(withCallback, callback != nullptr);
    std::vector<typename S::Parcel> parcels;
    for (const Hand::Parcel& shape : parcelShapes()) {
        parcels.push_back(convertParcel<S>(shape));
        parcels.back().callback = callback;
    }
    int32_t r = 0;
    std::string s;
    std::vector<typename S::Data> v;
    EXPECT_TRUE(torq->init().isOk());
    EXPECT_TRUE(torq->request(parcels[0], &r).isOk());
    EXPECT_TRUE(torq->release(3, &r).isOk());
    EXPECT_TRUE(torq->stateRequest(parcels[1], &v).isOk());
    EXPECT_TRUE(torq->listeningRegister(parcels[2], callback, &r).isOk());
    EXPECT_TRUE(torq->listeningUnregister(4, &r).isOk());
    EXPECT_TRUE(torq->propertyGet("n\xc3\xa9", &s).isOk());
    EXPECT_TRUE(torq->propertySet("n", "v", &r).isOk());
    EXPECT_TRUE(torq->thermalListeningRegister({1, 2, 3}, callback, &r).isOk());
    EXPECT_TRUE(torq->thermalListeningUnregister(5, &r).isOk());
    EXPECT_TRUE(torq->notifyEvent(parcels[2], &r).isOk());
    EXPECT_TRUE(torq->setRelatedSysInfo(6, -7, &r).isOk());
    EXPECT_TRUE(torq->ruleCtl(8, 9, parcels[2].data, &r).isOk());
    std::lock_guard<std::mutex> lock(recorder->mutex);
    return recorder->requests;
}

// Both proxies send the same request bytes for every method, and both HALs answer the same
// request bytes with the same reply bytes. (That the hand-written readers read every field of
// what generated code writes is the conformance fuzz target's property.)
TEST_F(TorqConformanceTest, BothSidesSendAndAnswerTheSameBytes) {
    serveListener();
    Recorder recorder;
    binder_host::runInProcess(binder_host::createProcess("recorder"), [&] {
        ::ndk::SpAIBinder local(AIBinder_new(Recorder::clazz(), &recorder));
        ASSERT_EQ(EX_NONE, AServiceManager_addService(local.get(), kInstance));
    });
    // Each side calls from a process of its own.
    std::map<transaction_code_t, std::vector<int32_t>> hand, gen, plain;
    binder_host::runInProcess(binder_host::createProcess("hand-client"),
                              [&] { hand = requestsOf<Hand>(&recorder, true); });
    binder_host::runInProcess(binder_host::createProcess("gen-client"),
                              [&] { gen = requestsOf<Gen>(&recorder, true); });
    ASSERT_EQ(13u, hand.size());
    EXPECT_EQ(hand, gen);

    // Requests without binders (those with a callback argument send a null one) replayed as
    // raw words to a HAL of each side.
    plain = requestsOf<Hand>(&recorder, false);
    ASSERT_EQ(13u, plain.size());
    ::ndk::SpAIBinder handHal, genHal;
    binder_host::runInProcess(binder_host::createProcess("hand-hal"), [&] {
        auto hal = ::ndk::SharedRefBase::make<Hal<Hand>>();
        handHal = hal->asBinder();
    });
    binder_host::runInProcess(binder_host::createProcess("gen-hal"), [&] {
        auto hal = ::ndk::SharedRefBase::make<Hal<Gen>>();
        genHal = hal->asBinder();
    });
    // The reply words, or none when the transaction failed.
    auto reply = [](const ::ndk::SpAIBinder& to, transaction_code_t code,
                    const std::vector<int32_t>& request, size_t length) {
        ::ndk::ScopedAParcel in;
        EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(to.get(), in.getR()));
        for (size_t i = 0; i < length; ++i) AParcel_writeInt32(in.get(), request[i]);
        ::ndk::ScopedAParcel out;
        const binder_status_t status = AIBinder_transact(to.get(), code, in.getR(), out.getR(), 0);
        return status == STATUS_OK ? words(out.get()) : std::vector<int32_t>();
    };
    for (const auto& [code, request] : plain) {
        SCOPED_TRACE("transaction " + std::to_string(code));
        const std::vector<int32_t> fromHand = reply(handHal, code, request, request.size());
        ASSERT_FALSE(fromHand.empty());
        EXPECT_EQ(0, fromHand[0]);  // EX_NONE: the request was understood
        EXPECT_EQ(fromHand, reply(genHal, code, request, request.size()));
        // Cut short anywhere, the request must not reach the HAL.
        for (size_t length = 0; length < request.size(); ++length) {
            EXPECT_TRUE(reply(handHal, code, request, length).empty()) << "cut to " << length;
        }
    }
}

}  // namespace
}  // namespace conformance
