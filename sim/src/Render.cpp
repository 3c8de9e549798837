#include "torq_sim/Render.h"

#include <cinttypes>
#include <cstdio>

namespace torq_sim {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestParcel;

std::string hexId(int32_t id) {
    char buf[16];
    snprintf(buf, sizeof(buf), "0x%08" PRIx32, static_cast<uint32_t>(id));
    return buf;
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            char buf[8];
            snprintf(buf, sizeof(buf), "\\x%02x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    out += '"';
    return out;
}

std::string quotedOrNull(const std::optional<std::string>& text) {
    return text ? quoted(*text) : std::string("null");
}

std::string renderData(const TorqRequestData& data) {
    std::string out = "{";
    auto field = [&out](const std::string& text) {
        if (out.size() > 1) out += ' ';
        out += text;
    };
    if (data.id != 0) field("id=" + hexId(data.id));
    if (data.subId != 0) field("subId=" + std::to_string(data.subId));
    if (data.value) field("value=" + quoted(*data.value));
    if (data.path) field("path=" + quoted(*data.path));
    if (data.extra) field("extra=" + quoted(*data.extra));
    // An entry with nothing else set still shows its id, so event 0 and mode 0 read as such.
    if (out.size() == 1) field("id=" + hexId(data.id));
    out += '}';
    return out;
}

std::string renderDataList(const std::vector<TorqRequestData>& list) {
    std::string out = "[";
    for (size_t i = 0; i < list.size(); ++i) {
        if (i > 0) out += ' ';
        out += renderData(list[i]);
    }
    out += ']';
    return out;
}

std::string renderInts(const std::vector<int32_t>& values) {
    std::string out = "[";
    for (size_t i = 0; i < values.size(); ++i) {
        if (i > 0) out += ' ';
        out += std::to_string(values[i]);
    }
    out += ']';
    return out;
}

std::string renderParcel(const TorqRequestParcel& parcel) {
    // kind and data are always shown; the other fields only when they differ from a default
    // parcel, which keeps one request on one readable line.
    std::string out = "kind=" + std::to_string(parcel.kind) + " data=" + renderDataList(parcel.data);
    if (parcel.flag) out += " flag=true";
    if (parcel.option != 0) out += " option=" + std::to_string(parcel.option);
    if (parcel.tag != 0) out += " tag=" + std::to_string(parcel.tag);
    if (parcel.duration != 0) out += " duration=" + std::to_string(parcel.duration);
    if (parcel.extras) {
        out += " extras=[";
        for (size_t i = 0; i < parcel.extras->size(); ++i) {
            if (i > 0) out += ' ';
            out += quotedOrNull((*parcel.extras)[i]);
        }
        out += ']';
    }
    if (parcel.param != 0) out += " param=" + std::to_string(parcel.param);
    if (parcel.callback) out += " callback=yes";
    if (parcel.pkg) out += " pkg=" + quoted(*parcel.pkg);
    if (parcel.identity) out += " identity=" + quoted(*parcel.identity);
    if (parcel.numbers) out += " numbers=" + renderInts(*parcel.numbers);
    return out;
}

}  // namespace torq_sim
