// The ITorqCallback served to the HAL: turns the HAL's records into the caller's resources (or
// values and paths) and retires one-shot request clients from request_callbacks.

#include <android/log.h>

#include <algorithm>
#include <utility>

#include "torqHalclient.h"

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;

namespace {

constexpr const char* kLogTag = "TorqFramework-lib-vendor";

#define LOGI(...) __android_log_print(ANDROID_LOG_INFO, kLogTag, __VA_ARGS__)
#define LOGE(...) __android_log_print(ANDROID_LOG_ERROR, kLogTag, __VA_ARGS__)

void printLog(const BnTorqCallback::TransactionLog& log) {
    __android_log_print(ANDROID_LOG_INFO, nullptr,
                        "BnTorqCallback::logFunc NDK BACKEND method_name %s exception_code %d "
                        "exception_message %s transaction_error %d service_specific_error_code %d",
                        log.method_name.c_str(), log.exception_code, log.exception_message.c_str(),
                        log.transaction_error, log.service_specific_error_code);
}

// Every client (re)installs printLog as the transaction-log hook, so the last installation always
// wins and is always printLog, even when other code replaced the hook in between. Binder threads
// read the hook during every callback transaction, so it is only written when it does not hold
// printLog already: rewriting an identical hook on each construction would race with callbacks
// in flight for nothing.
using LogHook = void (*)(const BnTorqCallback::TransactionLog&);

void installPrintLog() {
    static std::mutex installMutex;
    std::lock_guard<std::mutex> guard(installMutex);
    const LogHook* current = BnTorqCallback::logFunc.target<LogHook>();
    if (current != nullptr && *current == &printLog) return;
    BnTorqCallback::logFunc = printLog;
}

}  // namespace

TorqCallbackClient::TorqCallbackClient(const std::shared_ptr<IClientCallback>& callback,
                                       bool is_register, bool by_path)
    : mCallback(callback), is_register(is_register), by_path(by_path) {
    installPrintLog();
    mPathCallback = nullptr;
}

TorqCallbackClient::TorqCallbackClient(const std::shared_ptr<IClientCallbackByPath>& callback,
                                       bool is_register, bool by_path)
    : mPathCallback(callback), is_register(is_register), by_path(by_path) {
    installPrintLog();
    mCallback = nullptr;
}

TorqCallbackClient::~TorqCallbackClient() {
    LOGI("ndk backend ~TorqCallbackClient");
    mCallback.reset();
    mPathCallback.reset();
}

ndk::ScopedAStatus TorqCallbackClient::onCallback(const std::vector<TorqRequestData>& data) {
    if (!data.empty()) {
        if (by_path) {
            std::vector<std::string> values;
            std::vector<std::string> paths;
            values.reserve(data.size());
            paths.reserve(data.size());
            for (const TorqRequestData& record : data) {
                paths.push_back(record.path.value_or(std::string()));
                values.push_back(record.value.value_or(std::string()));
                if (record.path.has_value() && record.value.has_value()) {
                    LOGI("TorqCallbackClient::onCallback res_Id %s res_Value %s is_register %d",
                         record.path->c_str(), record.value->c_str(), is_register);
                }
            }
            if (mPathCallback != nullptr) {
                LOGI("TorqCallback::onCallback call IClientCallback onCallback is_register %d",
                     is_register);
                mPathCallback->onCallback(std::move(values), std::move(paths));
            }
        } else {
            std::list<ZelClient::Resource> resources;
            for (const TorqRequestData& record : data) {
                resources.push_back({record.id, record.value.value_or(std::string())});
                if (record.value.has_value()) {
                    LOGI("TorqCallbackClient::onCallback res_Id %#x res_Value %s is_register "
                         "%d",
                         record.id, record.value->c_str(), is_register);
                } else {
                    LOGI("TorqCallbackClient::onCallback res_Id %#x is_register %d", record.id,
                         is_register);
                }
            }
            if (mCallback != nullptr) {
                LOGI("TorqCallback::onCallback call IClientCallback onCallback is_register %d",
                     is_register);
                mCallback->onCallback(std::move(resources));
            }
        }
    }
    if (is_register) return ndk::ScopedAStatus::ok();

    // A request is answered once: the registry lets go of this client. The HAL's own reference
    // keeps it alive until the HAL drops it.
    std::lock_guard<std::mutex> guard(request_callback_mutex);
    size_t before = request_callbacks.size();
    auto kept = std::remove_if(request_callbacks.begin(), request_callbacks.end(),
                               [this](const std::shared_ptr<TorqCallbackClient>& client) {
                                   if (client.get() != this) return false;
                                   LOGI("callback is found in request_callbacks");
                                   return true;
                               });
    request_callbacks.erase(kept, request_callbacks.end());
    size_t after = request_callbacks.size();
    if (after == before) LOGE("callback not found in request_callbacks");
    LOGI("TorqCallback::onCallback request callback called , remove from request_callbacks , "
         "request_callbacks size before %d after %d",
         static_cast<int>(before), static_cast<int>(after));
    return ndk::ScopedAStatus::ok();
}
