#include "torq_sim/SimModel.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <set>
#include <utility>

#include "torq_sim/Catalog.h"
#include "torq_sim/Render.h"

namespace torq_sim {

const char* const kPropVersion = "torq.version";
const char* const kPropPowerMode = "torq.power_mode";
const char* const kPropHistory = "torq.history.recording";
const char* const kSimVersion = "torq-sim 1.0";

namespace {

// startMs + durationMs, held at the far end of time when a caller asks for longer than that.
int64_t deadlineAfter(int64_t startMs, int64_t durationMs) {
    if (durationMs > std::numeric_limits<int64_t>::max() - startMs) {
        return std::numeric_limits<int64_t>::max();
    }
    return startMs + durationMs;
}

constexpr size_t kNotesCapacity = 64;
const char kOpPrefix[] = "op:";
const char kPathPrefix[] = "path:";

bool startsWith(const std::string& text, const char* prefix) {
    return text.compare(0, std::char_traits<char>::length(prefix), prefix) == 0;
}

std::string textOr(const std::optional<std::string>& value, const char* absent) {
    return value ? *value : std::string(absent);
}

bool sameCallback(const std::shared_ptr<ITorqCallback>& a, const std::shared_ptr<ITorqCallback>& b) {
    if (a == b) return true;
    if (!a || !b) return false;
    // Each incoming call may bring its own proxy object for one remote binder.
    return a->asBinder().get() == b->asBinder().get();
}

}  // namespace

Clock steadyClock() {
    return [] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
                       std::chrono::steady_clock::now().time_since_epoch())
                .count();
    };
}

const char* dumpTableName(int32_t code) {
    static const char* const kNames[] = {"ToDoQueue",  "RunMap",          "ActiveResMap",
                                         "ResRequest", "ResInfo",         "SAInfo",
                                         "PidFdList",  "PidfdMonitorMap", "ResRecordList"};
    if (code < kCommandDumpFirst || code > kCommandDumpLast) return nullptr;
    return kNames[code];
}

SimModel::SimModel(Clock clock) : clock_(clock ? std::move(clock) : steadyClock()) {
    startMs_ = clock_();
}

// --- keys ----------------------------------------------------------------------------------
// A resource is known by one canonical key: "op:<hex opcode>" for anything with an opcode
// (a catalogued path maps to its opcode, so both addressings share one value) and
// "path:<path>" for a path the catalog does not know.

std::string SimModel::keyForId(int32_t id) {
    return kOpPrefix + hexId(id);
}

std::string SimModel::keyForPath(const std::string& path) {
    if (const ResourceEntry* entry = findResourceByPath(path)) return keyForId(entry->opcode);
    return kPathPrefix + path;
}

std::optional<std::string> SimModel::defaultFor(const std::string& key) {
    if (!startsWith(key, kOpPrefix)) return std::nullopt;
    const auto opcode = static_cast<int32_t>(
            std::stoul(key.substr(std::char_traits<char>::length(kOpPrefix)), nullptr, 16));
    if (const ResourceEntry* entry = findResource(opcode)) return std::string(entry->defaultValue);
    return std::nullopt;
}

std::string SimModel::describeKey(const std::string& key) {
    if (startsWith(key, kOpPrefix)) return key.substr(std::char_traits<char>::length(kOpPrefix));
    return key.substr(std::char_traits<char>::length(kPathPrefix));
}

// --- values --------------------------------------------------------------------------------

const SimModel::Request* SimModel::winner(const std::string& key) const {
    // Handles grow with every request, so the highest handle is the newest one.
    for (auto it = requests_.rbegin(); it != requests_.rend(); ++it) {
        for (const Setting& s : it->second.settings) {
            if (s.key == key) return &it->second;
        }
    }
    return nullptr;
}

std::optional<std::string> SimModel::effective(const std::string& key) const {
    const Request* request = winner(key);
    if (request == nullptr) return defaultFor(key);
    std::optional<std::string> value;
    for (const Setting& s : request->settings) {
        if (s.key == key) value = s.value;  // the last entry of one request wins
    }
    return value;
}

std::optional<std::string> SimModel::value(int32_t opcode) const {
    return effective(keyForId(opcode));
}

std::optional<std::string> SimModel::valueAtPath(const std::string& path) const {
    return effective(keyForPath(path));
}

std::optional<std::string> SimModel::thermalLevel(int32_t id) const {
    auto it = thermalLevels_.find(id);
    if (it == thermalLevels_.end()) return std::nullopt;
    return it->second;
}

std::optional<int32_t> SimModel::ruleStatus(int32_t ruleId) const {
    auto it = rules_.find(ruleId);
    if (it == rules_.end()) return std::nullopt;
    return it->second.first;
}

std::optional<int64_t> SimModel::sysInfo(int32_t type) const {
    auto it = sysInfo_.find(type);
    if (it == sysInfo_.end()) return std::nullopt;
    return it->second;
}

SimModel::Snapshot SimModel::snapshot(const std::vector<const Request*>& requests) const {
    Snapshot snap;
    for (const Request* r : requests) {
        for (const Setting& s : r->settings) snap.emplace(s.key, effective(s.key));
    }
    return snap;
}

void SimModel::notifyChanges(const Snapshot& before) {
    std::set<std::string> changed;
    for (const auto& [key, old] : before) {
        if (effective(key) != old) changed.insert(key);
    }
    if (changed.empty()) return;
    for (const auto& [handle, listener] : listeners_) {
        if (listener.type == Listener::Type::kThermal) continue;
        Delivery d;
        d.reason = Delivery::Reason::kListener;
        d.handle = handle;
        d.callback = listener.callback;
        for (const Watch& w : listener.watches) {
            if (changed.count(w.key) == 0) continue;
            TorqRequestData record = w.address;
            record.value = effective(w.key);
            d.records.push_back(std::move(record));
        }
        if (!d.records.empty()) deliveries_.push_back(std::move(d));
    }
}

// --- history and notes ---------------------------------------------------------------------

std::string SimModel::timeText() const {
    return "t=" + std::to_string(clock_() - startMs_) + "ms";
}

void SimModel::remember(const std::string& text) {
    if (!historyOn_) return;
    history_.push_back(timeText() + " " + text);
    while (history_.size() > kHistoryCapacity) history_.pop_front();
}

void SimModel::note(const std::string& text) {
    notes_.push_back(timeText() + " " + text);
    while (notes_.size() > kNotesCapacity) notes_.pop_front();
}

// --- requests ------------------------------------------------------------------------------

std::optional<std::string> SimModel::settingsFrom(const std::vector<TorqRequestData>& data,
                                                  size_t first, std::vector<Setting>* out) const {
    for (size_t i = first; i < data.size(); ++i) {
        const TorqRequestData& d = data[i];
        Setting s;
        if (d.id != 0) {
            s.key = keyForId(d.id);
            s.address.id = d.id;
        } else if (d.path && !d.path->empty()) {
            s.key = keyForPath(*d.path);
            s.address.path = d.path;
        } else {
            continue;  // names no resource: nothing to apply
        }
        if (!d.value || d.value->empty()) {
            return "entry " + std::to_string(i) + " (" + describeKey(s.key) + ") has no value";
        }
        s.value = *d.value;
        out->push_back(std::move(s));
    }
    return std::nullopt;
}

std::string SimModel::describeRequest(const Request& r) const {
    std::string out;
    switch (r.kind) {
        case kKindResourceControl:
            out = "resources";
            break;
        case kKindPlatformAcquire:
            out = "platform resources";
            break;
        case kKindSaControl:
            out = "SA control " + hexId(r.saId);
            break;
        case kKindEventAcquire: {
            const EventEntry* entry = findEvent(r.eventId);
            out = "event " + std::to_string(r.eventId) +
                  (entry != nullptr ? std::string(" (") + entry->name + ")" : std::string());
            break;
        }
        default:
            out = "kind " + std::to_string(r.kind);
    }
    if (!r.settings.empty()) {
        out += " {";
        for (size_t i = 0; i < r.settings.size(); ++i) {
            if (i > 0) out += ' ';
            out += describeKey(r.settings[i].key) + "=" + r.settings[i].value;
        }
        out += '}';
    }
    if (r.parcel.pkg && !r.parcel.pkg->empty()) out += " pkg=" + *r.parcel.pkg;
    if (r.parcel.identity && !r.parcel.identity->empty()) {
        out += " identity=" + *r.parcel.identity;
    }
    if (r.deadlineMs) {
        out += ", " + std::to_string(std::max<int64_t>(0, *r.deadlineMs - clock_())) + " ms left";
    } else {
        out += ", until released";
    }
    return out;
}

void SimModel::answerRequest(const Request& request,
                             const std::shared_ptr<ITorqCallback>& callback) {
    if (!callback) return;
    Delivery d;
    d.reason = Delivery::Reason::kRequestAnswer;
    d.handle = request.handle;
    d.callback = callback;
    if (request.kind == kKindSaControl) {
        TorqRequestData record;
        record.id = request.saId;
        record.value = "1";
        d.records.push_back(std::move(record));
    }
    for (const Setting& s : request.settings) {
        TorqRequestData record = s.address;
        record.value = effective(s.key);
        d.records.push_back(std::move(record));
    }
    deliveries_.push_back(std::move(d));
}

int32_t SimModel::applyResourceRequest(const TorqRequestParcel& parcel) {
    Request r;
    r.kind = parcel.kind;
    size_t first = 0;
    if (parcel.kind == kKindEventAcquire) {
        if (parcel.data.empty() || parcel.data[0].id < 0 || parcel.data[0].id >= kEventIdCount) {
            remember("request kind=8 rejected: no event id below " + std::to_string(kEventIdCount));
            return kRejected;
        }
        r.eventId = parcel.data[0].id;
        if (const EventEntry* entry = findEvent(r.eventId)) {
            for (const auto& [opcode, value] : entry->settings) {
                Setting s;
                s.key = keyForId(opcode);
                s.value = value;
                s.address.id = opcode;
                r.settings.push_back(std::move(s));
            }
        }
        first = 1;
    }
    if (auto error = settingsFrom(parcel.data, first, &r.settings)) {
        remember("request kind=" + std::to_string(parcel.kind) + " rejected: " + *error);
        return kRejected;
    }
    r.handle = nextHandle_++;
    r.startMs = clock_();
    if (parcel.duration > 0) r.deadlineMs = deadlineAfter(r.startMs, parcel.duration);
    r.parcel = parcel;
    r.parcel.callback = nullptr;

    Snapshot before = snapshot({&r});
    const int32_t handle = r.handle;
    const Request& stored = requests_.emplace(handle, std::move(r)).first->second;
    answerRequest(stored, parcel.callback);
    notifyChanges(before);
    remember("request #" + std::to_string(handle) + " " + describeRequest(stored));
    return handle;
}

int32_t SimModel::applySaControl(const TorqRequestParcel& parcel) {
    if (parcel.data.empty()) {
        remember("request kind=2 rejected: no SA id");
        return kRejected;
    }
    Request r;
    r.kind = kKindSaControl;
    r.saId = parcel.data[0].id;
    r.handle = nextHandle_++;
    r.startMs = clock_();
    if (parcel.duration > 0) r.deadlineMs = deadlineAfter(r.startMs, parcel.duration);
    r.parcel = parcel;
    r.parcel.callback = nullptr;
    const int32_t handle = r.handle;
    const Request& stored = requests_.emplace(handle, std::move(r)).first->second;
    answerRequest(stored, parcel.callback);
    remember("request #" + std::to_string(handle) + " " + describeRequest(stored));
    return handle;
}

int32_t SimModel::runCommand(const TorqRequestParcel& parcel) {
    if (parcel.data.empty()) return kRejected;
    const int32_t code = parcel.data[0].id;
    if (code >= kCommandDumpFirst && code <= kCommandDumpLast) {
        dumpOutput_.push_back("dump " + std::to_string(code) + " " + dumpTableName(code) + ":");
        for (const std::string& line : table(code)) dumpOutput_.push_back("  " + line);
    } else if (code == kCommandHistoryOn) {
        historyOn_ = true;
        remember("history recording on");
    } else if (code == kCommandHistoryOff) {
        remember("history recording off");
        historyOn_ = false;
    } else {
        return kRejected;
    }
    return nextHandle_++;
}

int32_t SimModel::applyThermal(const TorqRequestParcel& parcel) {
    std::vector<std::pair<int32_t, std::string>> levels;
    for (const TorqRequestData& d : parcel.data) {
        if (d.id == 0) continue;
        if (!d.value || d.value->empty()) {
            remember("thermal notify rejected: no level for id " + std::to_string(d.id));
            return kRejected;
        }
        levels.emplace_back(d.id, *d.value);
    }
    std::vector<TorqRequestData> changed;
    std::string text;
    for (const auto& [id, level] : levels) {
        text += " " + std::to_string(id) + "=" + level;
        auto it = thermalLevels_.find(id);
        if (it != thermalLevels_.end() && it->second == level) continue;
        thermalLevels_[id] = level;
        // One record per id even when the request names it twice: the last level counts.
        auto same = std::find_if(changed.begin(), changed.end(),
                                 [id = id](const TorqRequestData& r) { return r.id == id; });
        if (same != changed.end()) changed.erase(same);
        TorqRequestData record;
        record.id = id;
        record.value = level;
        changed.push_back(std::move(record));
    }
    for (const auto& [handle, listener] : listeners_) {
        if (listener.type != Listener::Type::kThermal) continue;
        Delivery d;
        d.reason = Delivery::Reason::kThermalListener;
        d.handle = handle;
        d.callback = listener.callback;
        for (const TorqRequestData& record : changed) {
            const auto& ids = listener.thermalIds;
            if (ids.empty() || std::find(ids.begin(), ids.end(), record.id) != ids.end()) {
                d.records.push_back(record);
            }
        }
        if (!d.records.empty()) deliveries_.push_back(std::move(d));
    }
    remember("thermal levels" + text);
    return nextHandle_++;
}

int32_t SimModel::recordNotify(const TorqRequestParcel& parcel) {
    std::string text = "notify";
    if (!parcel.data.empty()) {
        text += " id=" + std::to_string(parcel.data[0].id) +
                " subId=" + std::to_string(parcel.data[0].subId);
    }
    text += " entries=" + std::to_string(parcel.data.size());
    note(text);
    remember(text);
    return nextHandle_++;
}

int32_t SimModel::request(const TorqRequestParcel& parcel) {
    tick();
    switch (parcel.kind) {
        case kKindResourceControl:
        case kKindEventAcquire:
        case kKindPlatformAcquire:
            return applyResourceRequest(parcel);
        case kKindSaControl:
            return applySaControl(parcel);
        case kKindCommand:
            return runCommand(parcel);
        case kKindThermalNotify:
            return applyThermal(parcel);
        case kKindNotify:
            return recordNotify(parcel);
        default:
            remember("request kind=" + std::to_string(parcel.kind) + " rejected: unknown kind");
            return kRejected;
    }
}

int32_t SimModel::release(int32_t handle) {
    tick();
    auto it = requests_.find(handle);
    if (it == requests_.end()) {
        remember("release #" + std::to_string(handle) + " rejected: unknown handle");
        return kRejected;
    }
    Snapshot before = snapshot({&it->second});
    requests_.erase(it);
    notifyChanges(before);
    remember("release #" + std::to_string(handle));
    return kResultOk;
}

void SimModel::expire(int64_t now) {
    std::vector<const Request*> due;
    for (const auto& [handle, r] : requests_) {
        if (r.deadlineMs && *r.deadlineMs <= now) due.push_back(&r);
    }
    if (due.empty()) return;
    Snapshot before = snapshot(due);
    std::vector<int32_t> handles;
    for (const Request* r : due) handles.push_back(r->handle);
    for (int32_t h : handles) {
        requests_.erase(h);
        remember("expired #" + std::to_string(h));
    }
    notifyChanges(before);
}

void SimModel::tick() {
    expire(clock_());
}

std::optional<int64_t> SimModel::nextDeadline() const {
    std::optional<int64_t> next;
    for (const auto& [handle, r] : requests_) {
        if (r.deadlineMs && (!next || *r.deadlineMs < *next)) next = r.deadlineMs;
    }
    return next;
}

// --- queries -------------------------------------------------------------------------------

std::vector<TorqRequestData> SimModel::stateRequest(const TorqRequestParcel& parcel) {
    tick();
    std::vector<TorqRequestData> out;
    switch (parcel.kind) {
        case kKindState:
            for (const TorqRequestData& d : parcel.data) {
                TorqRequestData record;
                if (d.id != 0) {
                    record.id = d.id;
                    record.value = effective(keyForId(d.id));
                } else if (d.path) {
                    record.path = d.path;
                    record.value = effective(keyForPath(*d.path));
                } else {
                    continue;
                }
                out.push_back(std::move(record));
            }
            break;
        case kKindHistory: {
            int32_t index = 1;
            for (const std::string& text : history_) {
                TorqRequestData record;
                record.id = index++;
                record.extra = text;
                out.push_back(std::move(record));
            }
            break;
        }
        case kKindPowerMode:
            if (!parcel.data.empty() && findPowerMode(parcel.data[0].id) != nullptr) {
                TorqRequestData record;
                record.id = parcel.data[0].id;
                record.value = parcel.data[0].id == powerMode_ ? "1" : "0";
                out.push_back(std::move(record));
            }
            break;
        default:
            break;
    }
    return out;
}

// --- listeners -----------------------------------------------------------------------------

int32_t SimModel::registerListener(const TorqRequestParcel& parcel,
                                   const std::shared_ptr<ITorqCallback>& callback) {
    Listener l;
    l.type = Listener::Type::kId;
    l.tag = parcel.tag;
    l.callback = callback;
    for (const TorqRequestData& d : parcel.data) {
        Watch w;
        if (d.id != 0) {
            w.key = keyForId(d.id);
            w.address.id = d.id;
        } else if (d.path && !d.path->empty()) {
            w.key = keyForPath(*d.path);
            w.address.path = d.path;
            l.type = Listener::Type::kPath;
        } else {
            continue;
        }
        l.watches.push_back(std::move(w));
    }
    if (!callback || l.watches.empty()) {
        remember("listening register rejected: " +
                 std::string(callback ? "nothing to watch" : "no callback"));
        return kRejected;
    }
    l.handle = nextHandle_++;
    std::string keys;
    for (const Watch& w : l.watches) keys += " " + describeKey(w.key);
    remember("listener #" + std::to_string(l.handle) + keys);
    const int32_t handle = l.handle;
    listeners_.emplace(handle, std::move(l));
    return handle;
}

int32_t SimModel::listeningRegister(const TorqRequestParcel& parcel,
                                    const std::shared_ptr<ITorqCallback>& callback) {
    tick();
    return registerListener(parcel, callback);
}

int32_t SimModel::listeningUnregister(int32_t handle) {
    tick();
    auto it = listeners_.find(handle);
    if (it == listeners_.end() || it->second.type == Listener::Type::kThermal) {
        remember("listening unregister #" + std::to_string(handle) + " rejected: unknown handle");
        return kRejected;
    }
    listeners_.erase(it);
    remember("listener #" + std::to_string(handle) + " removed");
    return kResultOk;
}

int32_t SimModel::thermalListeningRegister(const std::vector<int32_t>& ids,
                                           const std::shared_ptr<ITorqCallback>& callback) {
    tick();
    if (!callback) {
        remember("thermal listening register rejected: no callback");
        return kRejected;
    }
    Listener l;
    l.type = Listener::Type::kThermal;
    l.thermalIds = ids;
    l.callback = callback;
    l.handle = nextHandle_++;
    remember("thermal listener #" + std::to_string(l.handle) + " " + renderInts(ids));
    const int32_t handle = l.handle;
    listeners_.emplace(handle, std::move(l));
    return handle;
}

int32_t SimModel::thermalListeningUnregister(int32_t handle) {
    tick();
    auto it = listeners_.find(handle);
    if (it == listeners_.end() || it->second.type != Listener::Type::kThermal) {
        remember("thermal listening unregister #" + std::to_string(handle) +
                 " rejected: unknown handle");
        return kRejected;
    }
    listeners_.erase(it);
    remember("thermal listener #" + std::to_string(handle) + " removed");
    return kResultOk;
}

void SimModel::forgetCallback(const std::shared_ptr<ITorqCallback>& callback) {
    for (auto it = listeners_.begin(); it != listeners_.end();) {
        if (sameCallback(it->second.callback, callback)) {
            remember("listener #" + std::to_string(it->first) + " dropped: client gone");
            it = listeners_.erase(it);
        } else {
            ++it;
        }
    }
}

std::vector<Delivery> SimModel::takeDeliveries() {
    std::vector<Delivery> out;
    out.swap(deliveries_);
    return out;
}

std::vector<std::string> SimModel::takeDumpOutput() {
    std::vector<std::string> out;
    out.swap(dumpOutput_);
    return out;
}

// --- the rest of ITorq ---------------------------------------------------------------------

void SimModel::init() {
    tick();
    ++initCount_;
    remember("init");
}

std::string SimModel::propertyGet(const std::string& name) {
    tick();
    if (name == kPropVersion) return kSimVersion;
    if (name == kPropPowerMode) return std::to_string(powerMode_);
    if (name == kPropHistory) return historyOn_ ? "1" : "0";
    auto it = properties_.find(name);
    return it == properties_.end() ? std::string() : it->second;
}

int32_t SimModel::propertySet(const std::string& name, const std::string& value) {
    tick();
    auto refuse = [&](const char* why) {
        remember("property " + name + " refused: " + why);
        return kRejected;
    };
    if (name.empty()) return refuse("empty name");
    if (value.size() > kPropertyValueMax) return refuse("value too long");
    if (name == kPropVersion) return refuse("read-only");
    if (name == kPropPowerMode) {
        const bool digits = !value.empty() && value.size() < 4 &&
                            std::all_of(value.begin(), value.end(),
                                        [](char c) { return c >= '0' && c <= '9'; });
        if (!digits || findPowerMode(std::stoi(value)) == nullptr) return refuse("unknown mode");
        powerMode_ = std::stoi(value);
    } else if (name == kPropHistory) {
        if (value != "0" && value != "1") return refuse("expects 0 or 1");
        if (value == "1") historyOn_ = true;
        remember("history recording " + std::string(value == "1" ? "on" : "off"));
        if (value == "0") historyOn_ = false;
        return kResultOk;
    } else {
        properties_[name] = value;
    }
    remember("property " + name + "=" + value);
    return kResultOk;
}

int32_t SimModel::notifyEvent(const TorqRequestParcel& parcel) {
    tick();
    note("notifyEvent " + renderParcel(parcel));
    remember("notifyEvent kind=" + std::to_string(parcel.kind));
    return kResultOk;
}

int32_t SimModel::setRelatedSysInfo(int32_t type, int64_t value) {
    tick();
    sysInfo_[type] = value;
    remember("sysinfo " + std::to_string(type) + "=" + std::to_string(value));
    return kResultOk;
}

int32_t SimModel::ruleCtl(int32_t ruleId, int32_t status, const std::vector<TorqRequestData>& data) {
    tick();
    rules_[ruleId] = {status, data};
    remember("rule " + std::to_string(ruleId) + " status=" + std::to_string(status) + " " +
             renderDataList(data));
    return kResultOk;
}

// --- tables --------------------------------------------------------------------------------

std::vector<std::string> SimModel::table(int32_t code) const {
    std::vector<std::string> out;
    const int64_t now = clock_();
    auto listenerText = [](const Listener& l) {
        std::string text;
        if (l.type == Listener::Type::kThermal) {
            text = "thermal listener " +
                   (l.thermalIds.empty() ? std::string("(all ids)") : renderInts(l.thermalIds));
        } else {
            text = l.type == Listener::Type::kPath ? "path listener" : "id listener";
            for (const Watch& w : l.watches) text += " " + describeKey(w.key);
            if (l.tag != 0) text += " tag=" + std::to_string(l.tag);
        }
        return text;
    };
    switch (code) {
        case 0: {  // ToDoQueue: what will expire, soonest first
            std::vector<const Request*> timed;
            for (const auto& [h, r] : requests_) {
                if (r.deadlineMs) timed.push_back(&r);
            }
            std::sort(timed.begin(), timed.end(), [](const Request* a, const Request* b) {
                return *a->deadlineMs < *b->deadlineMs;
            });
            for (const Request* r : timed) {
                out.push_back("#" + std::to_string(r->handle) + " expires in " +
                              std::to_string(std::max<int64_t>(0, *r->deadlineMs - now)) + " ms");
            }
            if (out.empty()) out.push_back("(no timed requests)");
            break;
        }
        case 1:  // RunMap: every live handle
            for (const auto& [h, r] : requests_) {
                out.push_back("#" + std::to_string(h) + " " + describeRequest(r));
            }
            for (const auto& [h, l] : listeners_) {
                out.push_back("#" + std::to_string(h) + " " + listenerText(l));
            }
            if (out.empty()) out.push_back("(nothing active)");
            break;
        case 2: {  // ActiveResMap: resources some request sets, and who wins
            std::set<std::string> keys;
            for (const auto& [h, r] : requests_) {
                for (const Setting& s : r.settings) keys.insert(s.key);
            }
            for (const std::string& key : keys) {
                const Request* w = winner(key);
                std::string line = describeKey(key);
                if (startsWith(key, kOpPrefix)) {
                    const auto op = static_cast<int32_t>(std::stoul(key.substr(3), nullptr, 16));
                    if (const ResourceEntry* entry = findResource(op))
                        line += std::string(" ") + entry->name;
                }
                line += " = " + textOr(effective(key), "(none)") + " by #" +
                        std::to_string(w->handle) + ", default " + textOr(defaultFor(key), "(none)");
                out.push_back(line);
            }
            if (out.empty()) out.push_back("(every resource at its default)");
            break;
        }
        case 3:  // ResRequest: the resource requests as received
            for (const auto& [h, r] : requests_) {
                if (r.kind == kKindSaControl) continue;
                out.push_back("#" + std::to_string(h) + " " + renderParcel(r.parcel));
            }
            if (out.empty()) out.push_back("(no resource requests)");
            break;
        case 4:  // ResInfo: the catalog with current values
            for (const ResourceEntry& entry : resourceCatalog()) {
                out.push_back(hexId(entry.opcode) + " " + entry.name + " default=" +
                              entry.defaultValue + " now=" + textOr(value(entry.opcode), "(none)") +
                              (entry.path != nullptr ? std::string(" path=") + entry.path : ""));
            }
            break;
        case 5:  // SAInfo: SA controls and rules
            for (const auto& [h, r] : requests_) {
                if (r.kind != kKindSaControl) continue;
                out.push_back("#" + std::to_string(h) + " " + describeRequest(r) +
                              " param=" + std::to_string(r.parcel.param) +
                              " option=" + std::to_string(r.parcel.option) + " flag=" +
                              (r.parcel.flag ? "1" : "0") + " tag=" + std::to_string(r.parcel.tag));
            }
            for (const auto& [id, rule] : rules_) {
                out.push_back("rule " + std::to_string(id) + " status=" +
                              std::to_string(rule.first) + " " + renderDataList(rule.second));
            }
            if (out.empty()) out.push_back("(no SA controls, no rules)");
            break;
        case 6:  // PidFdList: the clients the HAL calls back
            for (const auto& [h, l] : listeners_) {
                out.push_back("#" + std::to_string(h) + " " + listenerText(l));
            }
            if (out.empty()) out.push_back("(no listeners)");
            break;
        case 7:  // PidfdMonitorMap: what clients told the HAL about the system
            out.push_back("power mode " + std::to_string(powerMode_) + " (" +
                          findPowerMode(powerMode_)->name + "), init calls " +
                          std::to_string(initCount_));
            for (const auto& [id, level] : thermalLevels_) {
                out.push_back("thermal " + std::to_string(id) + " level " + level);
            }
            for (const auto& [type, v] : sysInfo_) {
                out.push_back("sysinfo " + std::to_string(type) + " = " + std::to_string(v));
            }
            for (const std::string& n : notes_) out.push_back(n);
            break;
        case 8:  // ResRecordList: the history
            out.push_back(std::string("history recording ") + (historyOn_ ? "on" : "off") + ", " +
                          std::to_string(history_.size()) + " records");
            for (const std::string& h : history_) out.push_back(h);
            break;
        default:
            break;
    }
    return out;
}

}  // namespace torq_sim
