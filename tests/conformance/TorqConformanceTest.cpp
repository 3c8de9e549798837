// The hand-written Torq stubs against the code the AIDL compiler generates from interface/: every
// method in both directions across emulated processes, every parcelable field shape, and the
// same bytes on the wire from both sides.

#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "TorqConformance.h"

// Readable failures: gtest prints the hand-written parcelables through their toString().
namespace aidl::vendor::quarn::hardware::torq {
void PrintTo(const TorqRequestData& value, std::ostream* os) {
    *os << value.toString();
}
void PrintTo(const TorqRequestParcel& value, std::ostream* os) {
    *os << value.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

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

// A parcel with every field set to something, before a case changes what it tests.
Hand::Parcel baseParcel() {
    Hand::Parcel p;
    p.kind = 8;
    p.data = {data(0x010108a0, "1800000")};
    p.flag = true;
    p.option = -1;
    p.tag = 42;
    p.duration = -2000;
    p.param = 3;
    return p;
}

struct ParcelCase {
    const char* name;
    std::function<void(Hand::Parcel&)> change;
};

// The field shapes both readers and writers must agree on. The callback is set apart (it needs
// a live object).
std::vector<ParcelCase> parcelCases() {
    return {
            {"absent", [](Hand::Parcel& p) { p.data.clear(); }},
            {"present-empty",
             [](Hand::Parcel& p) {
                 p.pkg = "";
                 p.identity = "";
                 p.extras.emplace();
                 p.numbers.emplace();
                 p.data = {data(0, "", "", "")};
             }},
            {"present",
             [](Hand::Parcel& p) {
                 p.pkg = "com.example.camera";
                 p.identity = "camera";
                 p.extras = std::vector<std::optional<std::string>>{"a", std::nullopt, "", "b"};
                 p.numbers = std::vector<int32_t>{1, -1, INT32_MAX, INT32_MIN};
                 p.data = {data(1, "v", "/sys/x", "e"), data(2, std::nullopt, "/p"),
                           data(3, std::nullopt, std::nullopt, "only-extra")};
             }},
            {"non-ascii",
             [](Hand::Parcel& p) {
                 p.pkg = "Gr\xc3\xbc\xc3\x9f"
                         "e \xd0\xb6";                          // two-byte UTF-8
                 p.identity = "\xe2\x82\xac \xf0\x9f\x9a\x80";  // three and four
                 p.extras = std::vector<std::optional<std::string>>{"\xe6\x97\xa5"};
                 p.data = {data(5, "\xf0\x9f\x98\x80", "\xc3\xa9")};
             }},
            {"extremes",
             [](Hand::Parcel& p) {
                 p.kind = INT32_MIN;
                 p.flag = false;
                 p.option = INT32_MAX;
                 p.duration = INT64_MIN;
                 p.param = -1;
                 p.tag = 0;
             }},
            {"large",
             [](Hand::Parcel& p) {
                 p.data.clear();
                 for (int i = 0; i < 3000; ++i) p.data.push_back(data(i, std::to_string(i * 7)));
                 p.numbers.emplace();
                 for (int i = 0; i < 5000; ++i) p.numbers->push_back(i * 3 - 7000);
                 p.extras.emplace(700, std::string(40, 'x'));
                 (*p.extras)[350].reset();
                 p.pkg = std::string(10000, 'p');
             }},
    };
}

constexpr const char* kListener = "conformance.listener";

// A callback object in a process of its own, registered as kListener, so that each side's stubs
// can wrap its own proxy of the same object (a process holds one side's stubs per binder).
void serveListener() {
    const binder_host::ProcessId pid = binder_host::createProcess("listener");
    binder_host::runInProcess(pid, [] {
        auto listener = ::ndk::SharedRefBase::make<Listener<Hand>>();
        ASSERT_EQ(EX_NONE, AServiceManager_addService(listener->asBinder().get(), kListener));
    });
}

template <typename S>
std::shared_ptr<typename S::ICallback> listenerProxy() {
    auto callback =
            S::ICallback::fromBinder(::ndk::SpAIBinder(AServiceManager_checkService(kListener)));
    EXPECT_NE(nullptr, callback);
    return callback;
}

// One process serves a HAL of side `Server`; the test thread calls it through side `Client`.
class TorqConformanceTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }

    template <typename Server>
    std::shared_ptr<Hal<Server>> serve() {
        const binder_host::ProcessId pid = binder_host::createProcess("torq-hal");
        std::shared_ptr<Hal<Server>> hal;
        binder_host::runInProcess(pid, [&] {
            hal = ::ndk::SharedRefBase::make<Hal<Server>>();
            ASSERT_EQ(EX_NONE, AServiceManager_addService(hal->asBinder().get(), kInstance));
        });
        return hal;
    }

    template <typename Client>
    std::shared_ptr<typename Client::ITorq> connect() {
        ::ndk::SpAIBinder binder(AServiceManager_checkService(kInstance));
        EXPECT_TRUE(AIBinder_isRemote(binder.get()));
        return Client::ITorq::fromBinder(binder);
    }

    // Every method once, with its result and what the HAL saw checked, callbacks included.
    template <typename Client, typename Server>
    void everyMethod() {
        std::shared_ptr<Hal<Server>> hal = serve<Server>();
        std::shared_ptr<typename Client::ITorq> torq = connect<Client>();
        ASSERT_NE(nullptr, torq);
        ASSERT_TRUE(torq->isRemote());
        auto listener = ::ndk::SharedRefBase::make<Listener<Client>>();

        EXPECT_TRUE(torq->init().isOk());
        EXPECT_EQ(1, hal->snapshot().inits);

        Hand::Parcel sent = baseParcel();
        int32_t r = 0;
        ASSERT_TRUE(torq->request(convertParcel<Client>(sent), &r).isOk());
        EXPECT_EQ(108, r);
        EXPECT_EQ(sent, *hal->snapshot().parcel);

        ASSERT_TRUE(torq->release(21, &r).isOk());
        EXPECT_EQ(42, r);

        std::vector<typename Client::Data> state;
        ASSERT_TRUE(torq->stateRequest(convertParcel<Client>(sent), &state).isOk());
        EXPECT_EQ(sent.data, convertData<Hand>(state));

        ASSERT_TRUE(torq->listeningRegister(convertParcel<Client>(sent), listener, &r).isOk());
        EXPECT_EQ(7, r);
        EXPECT_TRUE(hal->snapshot().hadCallback);
        ASSERT_EQ(1u, listener->waitFor(1).size());
        EXPECT_EQ(sent.data, listener->waitFor(1)[0]);

        ASSERT_TRUE(torq->listeningUnregister(5, &r).isOk());
        EXPECT_EQ(-5, r);

        std::string text;
        ASSERT_TRUE(torq->propertyGet("vendor.torq.mode", &text).isOk());
        EXPECT_EQ("vendor.torq.mode=value", text);
        ASSERT_TRUE(torq->propertySet("ab", "\xc3\xa9t\xc3\xa9", &r).isOk());
        EXPECT_EQ(2005, r);  // lengths in UTF-8 bytes, as sent

        ASSERT_TRUE(torq->thermalListeningRegister({3, -4}, listener, &r).isOk());
        EXPECT_EQ(2, r);
        EXPECT_EQ((std::vector<int32_t>{3, -4}), hal->snapshot().ids);
        ASSERT_EQ(2u, listener->waitFor(2).size());
        EXPECT_EQ(-4, listener->waitFor(2)[1].at(1).id);
        EXPECT_EQ("3", listener->waitFor(2)[1].at(0).value);

        ASSERT_TRUE(torq->thermalListeningRegister({}, nullptr, &r).isOk());
        EXPECT_EQ(0, r);
        EXPECT_FALSE(hal->snapshot().hadCallback);

        ASSERT_TRUE(torq->thermalListeningUnregister(9, &r).isOk());
        EXPECT_EQ(10, r);

        sent.tag = 77;
        ASSERT_TRUE(torq->notifyEvent(convertParcel<Client>(sent), &r).isOk());
        EXPECT_EQ(77, r);

        ASSERT_TRUE(torq->setRelatedSysInfo(4, INT64_MIN + 5, &r).isOk());
        EXPECT_EQ(4, r);
        EXPECT_EQ(INT64_MIN + 5, hal->snapshot().sysInfo);

        const std::vector<Hand::Data> rules = {data(0x010108a0, "10"), data(0x010108b0, "20")};
        ASSERT_TRUE(torq->ruleCtl(130, 1, convertData<Client>(rules), &r).isOk());
        EXPECT_EQ(129, r);
        EXPECT_EQ(rules, hal->snapshot().data);

        int32_t version = 0;
        ASSERT_TRUE(torq->getInterfaceVersion(&version).isOk());
        EXPECT_EQ(1, version);
    }

    // Every field shape through request (in) and stateRequest (in and out), with and without a
    // callback in the parcel.
    template <typename Client, typename Server>
    void everyField() {
        std::shared_ptr<Hal<Server>> hal = serve<Server>();
        std::shared_ptr<typename Client::ITorq> torq = connect<Client>();
        ASSERT_NE(nullptr, torq);
        auto listener = ::ndk::SharedRefBase::make<Listener<Client>>();
        for (const ParcelCase& c : parcelCases()) {
            for (bool withCallback : {false, true}) {
                SCOPED_TRACE(std::string(c.name) + (withCallback ? " with callback" : ""));
                Hand::Parcel sent = baseParcel();
                c.change(sent);
                typename Client::Parcel parcel = convertParcel<Client>(sent);
                if (withCallback) parcel.callback = listener;
                int32_t r = 0;
                ASSERT_TRUE(torq->request(parcel, &r).isOk());
                const Received got = hal->snapshot();
                // The HAL got a proxy of the callback (calls through one are checked above).
                EXPECT_EQ(withCallback, got.parcelCallback);
                EXPECT_EQ(withCallback, got.parcelCallbackRemote);
                EXPECT_EQ(sent, *got.parcel);

                std::vector<typename Client::Data> state;
                ASSERT_TRUE(torq->stateRequest(convertParcel<Client>(sent), &state).isOk());
                EXPECT_EQ(sent.data, convertData<Hand>(state));
            }
        }
    }
};

TEST_F(TorqConformanceTest, GeneratedProxyCallsEveryMethodOfHandWrittenHal) {
    everyMethod<Gen, Hand>();
}

TEST_F(TorqConformanceTest, HandWrittenProxyCallsEveryMethodOfGeneratedHal) {
    everyMethod<Hand, Gen>();
}

TEST_F(TorqConformanceTest, GeneratedWritersReachHandWrittenReaders) {
    everyField<Gen, Hand>();
}

TEST_F(TorqConformanceTest, HandWrittenWritersReachGeneratedReaders) {
    everyField<Hand, Gen>();
}

// Two copies of the stubs in one process (ours and the generated ones) share descriptors but not
// classes: a binder claimed by one copy is refused by the other, as on a device, instead of being
// handed out as an object of the wrong type.
TEST_F(TorqConformanceTest, ABinderBelongsToOneCopyOfTheStubsPerProcess) {
    auto local = ::ndk::SharedRefBase::make<Listener<Hand>>();
    EXPECT_EQ(nullptr, Gen::ICallback::fromBinder(local->asBinder()));
    EXPECT_EQ(local, Hand::ICallback::fromBinder(local->asBinder()));

    serveListener();
    ::ndk::SpAIBinder proxy(AServiceManager_checkService(kListener));
    ASSERT_NE(nullptr, Gen::ICallback::fromBinder(proxy));
    EXPECT_EQ(nullptr, Hand::ICallback::fromBinder(proxy));
    EXPECT_NE(nullptr, Gen::ICallback::fromBinder(proxy));  // the first copy keeps it
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

// The words side S writes for each case: the parcel, then the vector of its data; with a
// callback, the listener's proxy. Run in a process of S's own.
template <typename S>
std::vector<std::vector<int32_t>> parcelWords() {
    const auto callback = listenerProxy<S>();
    std::vector<std::vector<int32_t>> out;
    for (const ParcelCase& c : parcelCases()) {
        for (bool withCallback : {false, true}) {
            Hand::Parcel value = baseParcel();
            c.change(value);
            typename S::Parcel parcel = convertParcel<S>(value);
            if (withCallback) parcel.callback = callback;
            ::ndk::ScopedAParcel whole(AParcel_create());
            EXPECT_EQ(STATUS_OK, ::ndk::AParcel_writeParcelable(whole.get(), parcel));
            out.push_back(words(whole.get()));
            ::ndk::ScopedAParcel vector(AParcel_create());
            EXPECT_EQ(STATUS_OK, ::ndk::AParcel_writeVector(vector.get(), parcel.data));
            out.push_back(words(vector.get()));
        }
    }
    return out;
}

TEST_F(TorqConformanceTest, BothSidesWriteTheSameParcelableBytes) {
    serveListener();
    std::vector<std::vector<int32_t>> hand;
    std::vector<std::vector<int32_t>> gen;
    binder_host::runInProcess(binder_host::createProcess("hand-writer"),
                              [&] { hand = parcelWords<Hand>(); });
    binder_host::runInProcess(binder_host::createProcess("gen-writer"),
                              [&] { gen = parcelWords<Gen>(); });
    ASSERT_EQ(parcelCases().size() * 4, hand.size());
    ASSERT_EQ(hand.size(), gen.size());
    for (size_t i = 0; i < hand.size(); ++i) {
        SCOPED_TRACE(std::string(parcelCases()[i / 4].name) + (i % 4 >= 2 ? " with callback" : "") +
                     (i % 2 == 0 ? ", parcel" : ", vector"));
        EXPECT_EQ(hand[i], gen[i]);
    }
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

// Calls every method of the recorder registered as kInstance with the same arguments (the
// listener of kListener as callback, or none) and returns the request words per code.
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
    const auto callback = withCallback ? listenerProxy<S>() : nullptr;
    Hand::Parcel p = baseParcel();
    parcelCases()[2].change(p);  // "present": every nullable field set
    typename S::Parcel parcel = convertParcel<S>(p);
    parcel.callback = callback;
    int32_t r = 0;
    std::string s;
    std::vector<typename S::Data> v;
    EXPECT_TRUE(torq->init().isOk());
    EXPECT_TRUE(torq->request(parcel, &r).isOk());
    EXPECT_TRUE(torq->release(3, &r).isOk());
    EXPECT_TRUE(torq->stateRequest(parcel, &v).isOk());
    EXPECT_TRUE(torq->listeningRegister(parcel, callback, &r).isOk());
    EXPECT_TRUE(torq->listeningUnregister(4, &r).isOk());
    EXPECT_TRUE(torq->propertyGet("n\xc3\xa9", &s).isOk());
    EXPECT_TRUE(torq->propertySet("n", "v", &r).isOk());
    EXPECT_TRUE(torq->thermalListeningRegister({1, 2, 3}, callback, &r).isOk());
    EXPECT_TRUE(torq->thermalListeningUnregister(5, &r).isOk());
    EXPECT_TRUE(torq->notifyEvent(parcel, &r).isOk());
    EXPECT_TRUE(torq->setRelatedSysInfo(6, -7, &r).isOk());
    EXPECT_TRUE(torq->ruleCtl(8, 9, parcel.data, &r).isOk());
    std::lock_guard<std::mutex> lock(recorder->mutex);
    return recorder->requests;
}

TEST_F(TorqConformanceTest, BothProxiesSendTheSameRequestBytes) {
    serveListener();
    const binder_host::ProcessId pid = binder_host::createProcess("recorder");
    Recorder recorder;
    binder_host::runInProcess(pid, [&] {
        ::ndk::SpAIBinder local(AIBinder_new(Recorder::clazz(), &recorder));
        ASSERT_EQ(EX_NONE, AServiceManager_addService(local.get(), kInstance));
    });

    // Each side calls from a process of its own.
    std::map<transaction_code_t, std::vector<int32_t>> hand;
    std::map<transaction_code_t, std::vector<int32_t>> gen;
    binder_host::runInProcess(binder_host::createProcess("hand-client"),
                              [&] { hand = requestsOf<Hand>(&recorder, true); });
    binder_host::runInProcess(binder_host::createProcess("gen-client"),
                              [&] { gen = requestsOf<Gen>(&recorder, true); });
    ASSERT_EQ(13u, hand.size());
    for (const auto& [code, bytes] : hand) {
        SCOPED_TRACE("transaction " + std::to_string(code));
        ASSERT_EQ(1u, gen.count(code));
        EXPECT_EQ(bytes, gen.at(code));
    }
}

// The same request bytes to a hand-written and to a generated HAL give the same reply bytes.
TEST_F(TorqConformanceTest, BothHalsAnswerWithTheSameReplyBytes) {
    const binder_host::ProcessId handPid = binder_host::createProcess("hand-hal");
    const binder_host::ProcessId genPid = binder_host::createProcess("gen-hal");
    ::ndk::SpAIBinder hand;
    ::ndk::SpAIBinder gen;
    binder_host::runInProcess(handPid,
                              [&] { hand = ::ndk::SharedRefBase::make<Hal<Hand>>()->asBinder(); });
    binder_host::runInProcess(genPid,
                              [&] { gen = ::ndk::SharedRefBase::make<Hal<Gen>>()->asBinder(); });

    // Requests without binders (those with a callback argument send a null one), built by the
    // hand-written proxy against a recorder.
    const binder_host::ProcessId recorderPid = binder_host::createProcess("recorder");
    Recorder recorder;
    binder_host::runInProcess(recorderPid, [&] {
        ::ndk::SpAIBinder local(AIBinder_new(Recorder::clazz(), &recorder));
        ASSERT_EQ(EX_NONE, AServiceManager_addService(local.get(), kInstance));
    });
    const auto requests = requestsOf<Hand>(&recorder, false);
    ASSERT_EQ(13u, requests.size());

    auto reply = [](const ::ndk::SpAIBinder& to, transaction_code_t code,
                    const std::vector<int32_t>& request) {
        ::ndk::ScopedAParcel in;
        EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(to.get(), in.getR()));
        for (int32_t w : request) AParcel_writeInt32(in.get(), w);
        ::ndk::ScopedAParcel out;
        EXPECT_EQ(STATUS_OK, AIBinder_transact(to.get(), code, in.getR(), out.getR(), 0));
        return words(out.get());
    };
    for (const auto& [code, request] : requests) {
        SCOPED_TRACE("transaction " + std::to_string(code));
        const std::vector<int32_t> fromHand = reply(hand, code, request);
        EXPECT_FALSE(fromHand.empty());
        EXPECT_EQ(0, fromHand.at(0));  // EX_NONE: the request was understood
        EXPECT_EQ(fromHand, reply(gen, code, request));
    }
}

}  // namespace
}  // namespace conformance

namespace conformance {
namespace {

// Generated bytes cut short anywhere, or with any one word replaced by a hostile value, are
// refused by the hand-written readers with an error status (a cut) or at least read without a
// crash or an out-of-bounds read (a replaced word; ASan watches).
TEST(TorqBadInputTest, HandWrittenReadersRefuseDamagedGeneratedParcels) {
    Hand::Parcel value = baseParcel();
    parcelCases()[2].change(value);  // "present": every nullable field and vector set
    ::ndk::ScopedAParcel written(AParcel_create());
    ASSERT_EQ(STATUS_OK, ::ndk::AParcel_writeParcelable(written.get(), convertParcel<Gen>(value)));
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(written.get())));
    ASSERT_EQ(STATUS_OK, AParcel_marshal(written.get(), bytes.data(), 0, bytes.size()));

    auto read = [](const std::vector<uint8_t>& b, Hand::Parcel* out) {
        ::ndk::ScopedAParcel parcel(AParcel_create());
        EXPECT_EQ(STATUS_OK, AParcel_unmarshal(parcel.get(), b.data(), b.size()));
        return ::ndk::AParcel_readParcelable(parcel.get(), out);
    };
    Hand::Parcel whole;
    ASSERT_EQ(STATUS_OK, read(bytes, &whole));
    EXPECT_EQ(value, whole);

    for (size_t keep = 0; keep < bytes.size(); ++keep) {
        SCOPED_TRACE("cut to " + std::to_string(keep) + " of " + std::to_string(bytes.size()));
        Hand::Parcel got;
        EXPECT_NE(STATUS_OK, read(std::vector<uint8_t>(bytes.begin(), bytes.begin() + keep), &got));
    }
    for (int32_t hostile : {-2, -1, 0, 1, 3, INT32_MAX, INT32_MIN, 1000001, 0x00ffffff}) {
        for (size_t at = 0; at + 4 <= bytes.size(); at += 4) {
            std::vector<uint8_t> damaged = bytes;
            std::memcpy(&damaged[at], &hostile, sizeof(hostile));
            Hand::Parcel got;
            (void)read(damaged, &got);
        }
    }
}

}  // namespace
}  // namespace conformance
