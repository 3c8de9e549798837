// The hand-written Torq stubs reading damaged input:
//
//   byte 0 even: a TorqRequestParcel and a vector of TorqRequestData built from the input are
//                written by the code the AIDL compiler generated, then cut short and one byte
//                overwritten; the hand-written readers must refuse or accept them without a
//                crash, and an undamaged parcel must read back as the value written.
//   byte 0 odd:  the rest is the reply that the hand-written proxy gets from a HAL in another
//                process, for each method with a result of its own kind.
//
// Every reader may fail with an error status; none may crash, read out of bounds or hang.

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <binder_host/process.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "TorqConformance.h"

namespace {

using conformance::Gen;
using conformance::Hand;

// Hands out the input's bytes as values; zeros once it runs dry.
class Source {
  public:
    Source(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
    int32_t int32() {
        uint32_t v = 0;
        for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
        return static_cast<int32_t>(v);
    }
    int64_t int64() {
        const uint64_t high = static_cast<uint32_t>(int32());
        return static_cast<int64_t>((high << 32) | static_cast<uint32_t>(int32()));
    }
    // A string of up to 15 bytes forced to ASCII (the writers refuse invalid UTF-8 on purpose),
    // or null.
    std::optional<std::string> text() {
        const uint8_t head = byte();
        if (head & 0x80) return std::nullopt;
        std::string s;
        for (int i = 0; i < (head & 0x0f); ++i) s.push_back(static_cast<char>(byte() & 0x7f));
        return s;
    }
    const uint8_t* rest() const { return data_ + pos_; }
    size_t restSize() const { return pos_ < size_ ? size_ - pos_ : 0; }

  private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};

Gen::Data genData(Source& in) {
    Gen::Data d;
    d.id = in.int32();
    d.subId = in.int32();
    d.value = in.text();
    d.path = in.text();
    d.extra = in.text();
    return d;
}

Gen::Parcel genParcel(Source& in) {
    Gen::Parcel p;
    p.kind = in.int32();
    for (int n = in.byte() % 4; n > 0; --n) p.data.push_back(genData(in));
    p.flag = in.byte() & 1;
    p.option = in.int32();
    p.tag = in.int32();
    p.duration = in.int64();
    if (in.byte() & 1) {
        p.extras.emplace();
        for (int n = in.byte() % 4; n > 0; --n) p.extras->push_back(in.text());
    }
    p.param = in.int32();
    p.pkg = in.text();
    p.identity = in.text();
    if (in.byte() & 1) {
        p.numbers.emplace();
        for (int n = in.byte() % 4; n > 0; --n) p.numbers->push_back(in.int32());
    }
    return p;
}

// Writes with `write`, damages the bytes as the input says, reads them back with `read`.
template <typename Value, typename Write, typename Read>
void damaged(Source& in, const Value& expected, Write write, Read read) {
    ::ndk::ScopedAParcel written(AParcel_create());
    FUZZ_CHECK(write(written.get()) == STATUS_OK, "the generated writer failed");
    std::vector<uint8_t> bytes(static_cast<size_t>(AParcel_getDataSize(written.get())));
    FUZZ_CHECK(AParcel_marshal(written.get(), bytes.data(), 0, bytes.size()) == STATUS_OK,
               "marshal");

    const size_t keep = bytes.size() - (bytes.empty() ? 0 : in.byte() % (bytes.size() + 1));
    const bool cut = keep < bytes.size();
    bytes.resize(keep);
    const uint8_t where = in.byte();
    const uint8_t what = in.byte();
    const bool overwrite = (where & 1) && !bytes.empty();
    if (overwrite) bytes[(static_cast<size_t>(where) * 7) % bytes.size()] = what;

    ::ndk::ScopedAParcel damagedParcel(AParcel_create());
    FUZZ_CHECK(AParcel_unmarshal(damagedParcel.get(), bytes.data(), bytes.size()) == STATUS_OK,
               "unmarshal");
    Value got;
    const binder_status_t status = read(damagedParcel.get(), &got);
    if (!cut && !overwrite) {
        FUZZ_CHECK(status == STATUS_OK, "an undamaged parcel was refused");
        FUZZ_CHECK(got == expected, "an undamaged parcel read back differently");
    }
}

void writerToReader(Source& in) {
    const Gen::Parcel parcel = genParcel(in);
    const Hand::Parcel handParcel = conformance::convertParcel<Hand>(parcel);
    damaged(
            in, handParcel, [&](AParcel* p) { return ::ndk::AParcel_writeParcelable(p, parcel); },
            [](const AParcel* p, Hand::Parcel* v) { return ::ndk::AParcel_readParcelable(p, v); });
    const std::vector<Hand::Data> handData = handParcel.data;
    damaged(
            in, handData, [&](AParcel* p) { return ::ndk::AParcel_writeVector(p, parcel.data); },
            [](const AParcel* p, std::vector<Hand::Data>* v) {
                return ::ndk::AParcel_readVector(p, v);
            });
}

// A HAL in its own process that answers every call with the bytes it is given.
struct Replier {
    std::mutex mutex;
    std::vector<uint8_t> reply;
    ::ndk::SpAIBinder remote;

    static Replier& get() {
        static Replier* replier = [] {
            auto* r = new Replier;
            static AIBinder_Class* clazz = AIBinder_Class_define(
                    Hand::ITorq::descriptor, [](void* args) { return args; }, [](void*) {},
                    [](AIBinder* binder, transaction_code_t, const AParcel*,
                       AParcel* out) -> binder_status_t {
                        auto* self = static_cast<Replier*>(AIBinder_getUserData(binder));
                        std::lock_guard<std::mutex> lock(self->mutex);
                        return AParcel_unmarshal(out, self->reply.data(), self->reply.size());
                    });
            const binder_host::ProcessId pid = binder_host::createProcess("replier");
            binder_host::runInProcess(pid, [&] {
                ::ndk::SpAIBinder local(AIBinder_new(clazz, r));
                const binder_exception_t added =
                        AServiceManager_addService(local.get(), "fuzz.replier");
                FUZZ_CHECK(added == EX_NONE, "the replier could not be registered");
            });
            r->remote.set(AServiceManager_checkService("fuzz.replier"));
            return r;
        }();
        return *replier;
    }
};

void replyToProxy(Source& in) {
    Replier& replier = Replier::get();
    {
        std::lock_guard<std::mutex> lock(replier.mutex);
        replier.reply.assign(in.rest(), in.rest() + in.restSize());
    }
    std::shared_ptr<Hand::ITorq> torq = Hand::ITorq::fromBinder(replier.remote);
    FUZZ_CHECK(torq != nullptr, "the proxy could not be made");
    int32_t r = 0;
    std::string s;
    std::vector<Hand::Data> v;
    (void)torq->init();
    const bool accepted = torq->request(Hand::Parcel(), &r).isOk();
    FUZZ_CHECK(!accepted || in.restSize() >= 8, "a reply without its result was accepted");
    (void)torq->stateRequest(Hand::Parcel(), &v);
    (void)torq->propertyGet("name", &s);
    (void)torq->getInterfaceHash(&s);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    Source in(data + 1, size - 1);
    if (data[0] % 2 == 0) {
        writerToReader(in);
    } else {
        replyToProxy(in);
    }
    return 0;
}
