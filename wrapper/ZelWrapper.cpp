#include "ZelWrapper.h"

#include <android/log.h>

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "../utils/StringPieces.h"
#include "../zel/ZelRuleCtl.h"
#include "zel.h"

namespace {

constexpr const char* kTag = "[ZEL_CLIENT_WRAPPER]";

// Callers address actions as "VARDEX_" + action name.
constexpr const char* kEventPrefix = "VARDEX_";
constexpr size_t kEventPrefixLength = 7;

constexpr int32_t kOpcodeCameraBoost = 0x010103A0;  // src 8 and 111
constexpr int32_t kOpcodeFrameRate = 0x01011070;    // src 102
constexpr int32_t kOpcodeSceneEnable = 0x010112F0;  // src 9
constexpr int32_t kOpcodeSceneLevel = 0x01011910;   // src 9

// Default level for src 102 when the caller passes no usable one.
constexpr int kDefaultFrameRateLevel = 3;

const char* orNone(const std::string& s) {
    return s.empty() ? "none" : s.c_str();
}

}  // namespace

// The event id the HAL understands is the index in this list, so entries are never reordered,
// removed or de-duplicated: 91-94 reappear at 106-109 and 102 at 162 on purpose, and the
// misspellings at 78 and 120 are the names callers send.
std::vector<std::string> gActionList = {
        "ACTION_LAUNCH",
        "ACTION_COLD_LAUNCH",
        "ACTION_ACTIVITY_START",
        "ACTION_ACTIVITY_RESUME",
        "ACTION_ACTIVITY_FINISH",
        "ACTION_WINDOW_ROTATION",
        "ACTION_SWIPE_V",
        "ACTION_SWIPE_H",
        "ACTION_DECODE",
        "ACTION_COMPRESS",
        // 10
        "ACTION_BLUETOOTH",
        "ACTION_CAMERA_OPEN",
        "ACTION_CAMERA_CLOSE",
        "ACTION_MTP_BOOST",
        "ACTION_HARDCODER_L1",
        "ACTION_HARDCODER_L2",
        "ACTION_HARDCODER_L3",
        "ACTION_CAMERA_PREVIEW",
        "ACTION_CAMERA_CAPTURE",
        "ACTION_CAMERA_VIDEO",
        // 20
        "ACTION_CAMERA_SLOW_720P",
        "ACTION_CAMERA_SLOW_1080P",
        "ACTION_CAMERA_FRONT_PREVIEW",
        "ACTION_CAMERA_VIDEO_PREVIEW_60FPS",
        "ACTION_CAMERA_VIDEO_PREVIEW_VIRTUAL",
        "ACTION_CAMERA_VIDEO_PREVIEW_EIS",
        "ACTION_CAMERA_VIDEO_EIS_60FPS",
        "ACTION_CAMERA_VIDEO_4K",
        "ACTION_KORVA_GAME_LOADING",
        "ACTION_KORVA_GAME_BOOST_L1",
        // 30
        "ACTION_KORVA_GAME_BOOST_L2",
        "ACTION_KORVA_GAME_BOOST_L3",
        "ACTION_ZENTRA_GPU_BOOST",
        "ACTION_ZENTRA_CPU_BOOST_L1",
        "ACTION_ZENTRA_CPU_BOOST_L2",
        "ACTION_ZENTRA_CPU_BOOST_L3",
        "ACTION_ZENTRA_DDR_BOOST",
        "ACTION_TOUCH_BOOST",
        "ACTION_SCREEN_ON_BOOST",
        "ACTION_INPUT_METHOD_BOOST",
        // 40
        "ACTION_STORAGE_BOOST",
        "ACTION_UNLOCK_BOOST",
        "ACTION_ANIMATION",
        "ACTION_CAMERA_VIDEO_UHD60",
        "ACTION_CAMERA_PREVIEW_VIDEO_EIS",
        "ACTION_CAMERA_VIDEO_HD30",
        "ACTION_CAMERA_VIDEO_FHD30",
        "ACTION_CAMERA_VIDEO_UHD30",
        "ACTION_CAMERA_3RD_PARTY",
        "ACTION_CLEAN_UP",
        // 50
        "ACTION_SCREEN_SHOT",
        "ACTION_INSTALLATION",
        "ACTION_RECORD",
        "ACTION_CAMERA_FRONT_PREVIEW_PHOTO",
        "ACTION_LUCKY_MONEY",
        "ACTION_CAMERA_APS_CAPTURE",
        "ACTION_FACE_UNLOCK",
        "ACTION_CAMERA_SLOW_CAPTURE",
        "ACTION_VOICE_WAKEUP",
        "ACTION_3RD_CAM_WECHAT_VIDEO_CALL",
        // 60
        "ACTION_FILE_SCANNER",
        "ACTION_WATERMARK_ANIMATION",
        "ACTION_3RD_CAM_VIDEO_CALL",
        "ACTION_3RD_CAM_VIDEO_RECORDER",
        "ACTION_VFX_BOOST",
        "ACTION_FOREGROUND_BOOST",
        "ACTION_CAMERA_GIFMAKER",
        "ACTION_DEFAULT_PLAYER",
        "ACTION_SWIPE_SLOW_V",
        "ACTION_SWIPE_SLOW_H",
        // 70
        "ACTION_CAMERA_VIDEO_720P",
        "ACTION_SIM_INIT",
        "ACTION_3RD_CAM_WHATSAPP_VIDEO_CALL",
        "ACTION_CTS_PERF",
        "ACTION_SWIPE_SLOW_EXTEND",
        "ACTION_LAUNCHER_GPU_BOOST",
        "ACTION_FILE_COPY_CUT",
        "ACTION_FILE_ZIP_UNZIP",
        "ACTION_CAMERA_STIKER_RECORD",
        "ACTION_CAMERA_3RD_PARTY_LOW_POWER",
        // 80
        "ACTION_SWIPE_RECENT",
        "ACTION_INPUT_BOOST_EXTEND",
        "ACTION_CAMERA_3RD_PARTY_COMMON",
        "ACTION_CAMERA_VIDEO_PREVIEW_30FPS",
        "ACTION_GESTURE_ANIMATION",
        "ACTION_LAUNCHER_OPEN_APP_ANIMATION",
        "ACTION_LAUNCHER_CLOSE_APP_ANIMATION",
        "ACTION_CAMERA_VIDEO_UHD60_CAMERAUNIT",
        "ACTION_CAMERA_3RD_PARTY_EXPORT",
        "ACTION_CAMERA_3RD_PARTY_LOW_POWER_EXPORT",
        // 90
        "ACTION_CAMERA_3RD_PARTY_MIDDLE_POWER",
        "ACTION_CAMERA_APS_CAPTURE_L1",
        "ACTION_CAMERA_APS_CAPTURE_L2",
        "ACTION_CAMERA_APS_CAPTURE_L3",
        "ACTION_CAMERA_APS_CAPTURE_L4",
        "ACTION_CAMERA_3RD_PARTY_HIGH_POWER",
        "ACTION_CAMERA_3RD_PARTY_SUPER_POWER",
        "ACTION_SYSTEM_UI_SWIPE",
        "ACTION_CAMERA_VIDEO_AI_ENHANCE",
        "ACTION_CAMERA_VIDEO_GIFMAKER_REAR",
        // 100
        "ACTION_CAMERA_REAR_VIDEO_1080P",
        "ACTION_CAMERA_REAR_VIDEO_SUPER_EIS",
        "ACTION_CAMERA_MULTI_SCENE",
        "ACTION_CAMERA_MOVIE",
        "ACTION_CAMERA_3RD_PARTY_PERF",
        "ACTION_VIRTUAL_KEY",
        "ACTION_CAMERA_APS_CAPTURE_L1",
        "ACTION_CAMERA_APS_CAPTURE_L2",
        "ACTION_CAMERA_APS_CAPTURE_L3",
        "ACTION_CAMERA_APS_CAPTURE_L4",
        // 110
        "ACTION_ROTATION_LATENCY_BOOST",
        "ACTION_VERTICAL_SCROLL_BOOST",
        "ACTION_PREFLING_SCROLL_BOOST",
        "ACTION_HORIZONTAL_SCROLL_BOOST",
        "ACTION_CAMERA_VIDEO_SUPER_EIS",
        "ACTION_CAMERA_3RD_PARTY_WECHAT_SMALL_WINDOW",
        "ACTION_CAMERA_MOVIE_ULTRA_WIDE",
        "ACTION_SIDEBAR_SLIDEOUT_BOOST",
        "ACTION_3RD_CAM_VIDEO_MIDPERF",
        "ACTION_3RD_CAM_VIDEO_HIGHPERF",
        // 120
        "ACTION_CAMERA_PREVIEW_PORTAIT",
        "ACTION_CAMERA_MEITU",
        "ACTION_CAMERA_FRONT_EIS",
        "ACTION_CAMERA_VIDEO_BLUR",
        "ACTION_WFD",
        "ACTION_AUDIO_BOOST_L1",
        "ACTION_AUDIO_BOOST_L2",
        "ACTION_AUDIO_BOOST_L3",
        "ACTION_CAMERA_CONTINUOUS_CAPTURE",
        "ACTION_CAMERA_3RD_PARTY_SPECIAL_APP",
        // 130
        "ACTION_CAMERA_VIDEO_FRONT_NEON_BEAUTY",
        "ACTION_CAMERA_VIDEO_FRONT_BLUR_BEAUTY",
        "ACTION_CAMERA_FRONT_PREVIEW_30FPS",
        "ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2",
        "ACTION_CAMERA_VIDEO_BACK_NEON_BEAUTY",
        "ACTION_CAMERA_SUPERNIGHT",
        "ACTION_CAMERA_PREVIEW_800_400",
        "ACTION_LAUNCHER_ICON_EDIT",
        "ACTION_VIDEO_PLAY_BOOST",
        "ACTION_CAMERA_VIDEO_HFR_480FPS",
        // 140
        "ACTION_CAMERA_VIDEO_8K30",
        "ACTION_CAMERA_VIDEO_SUPER_STEADY",
        "ACTION_CAMERA_VIDEO_UHD120",
        "ACTION_CAMERA_VIDEO_HFR_240FPS",
        "ACTION_CAMERA_VIDEO_SAT",
        "ACTION_CAMERA_VIDEO_MACRO_PREVIEW",
        "ACTION_CAMERA_48M_PREVIEW",
        "ACTION_CAMERA_CTS_PREVIEW",
        "ACTION_CAMERA_STICKER_MODE",
        "ACTION_EPS_FALLBACK_BOOST",
        // 150
        "ACTION_CAMERA_CAPTURE_LOWPOWER",
        "ACTION_CAMERA_MODE_CHANGE",
        "ACTION_LAUNCHER_ICON_FALLEN",
        "ACTION_ZOOMWINDOW_DRAG",
        "ACTION_CAMERA_PREVIEW_RAWSR",
        "ACTION_CAMERA_CAPTURE_RAWSR",
        "ACTION_ROUND_CORNER_ANIMATION",
        "ACTION_STYLUS_OPERATE",
        "ACTION_CAMERA_SUPERTEXT_CAPTURE",
        "ACTION_CAMERA_FRONT_VIDEO_BOKEH",
        // 160
        "ACTION_CAMERA_VIDEO_FHD30_BOKEH",
        "ACTION_CAMERA_VIDEO_FHD30_TIMELAPSE",
        "ACTION_CAMERA_MULTI_SCENE",
        "ACTION_CAMERA_FRONT_NIGHT_CAPTURE",
        "ACTION_CAMERA_NIGHT_CAPTURE",
        "ACTION_HINT_ANIMATION",
        "ACTION_CAMERA_3RD_PARTY_TIKTOK",
        "ACTION_CAMERA_FRONT_NIGHT_UI",
        "ACTION_CAMERA_APS_ICE2P0_CAPTURE",
        "ACTION_CAMERA_STICKER_ANIMOJI_PREVIEW",
        // 170
        "ACTION_CAMERA_CAPTURE_FILTER_BEAUTY",
        "ACTION_CAMERA_REAR_PORTRAIT_PREVIEW",
        "ACTION_OTA_PANEL_OPEN",
        "ACTION_KORVA_GAME_BG",
        "ACTION_CAMERA_DUALVIEW_VIDEO",
        "ACTION_CAST_SCREENOFF_DISABLE_DISPLAY_VOTE",
        "ACTION_CAMERA_LONG_EXPOSURE",
        "ACTION_CAMERA_FRONT_PREVIEW_PORTRAIT",
        "ACTION_CAMERA_FRONT_CAPTURE",
        "ACTION_CAMERA_FRONT_VIDEO_EIS",
        // 180
        "ACTION_CAMERA_AI_VIDEO",
        "ACTION_CAMERA_ZOOM",
        "ACTION_CAMERA_APS_THDR_CAPTURE",
        "ACTION_CAMERA_LOWPOWER",
        "ACTION_BACKUP_RESTORE",
        "ACTION_CAMERA_VIDEO_BOKEH_24FPS",
        "ACTION_MULTI_USER_SWITCH",
        "ACTION_EXTREME_COLD_MODE",
        "ACTION_HIGHLIGHT_BOOST",
        "ACTION_CAMERA_3RD_WECHAT_SCAN",
        // 190
        "ACTION_CAMERA_APS_THDR_CAPTURE_L1",
        "ACTION_CAMERA_THDR_CAPTURE",
        "ACTION_LIVE_WALLPAPER",
        "ACTION_CAST",
        "ACTION_ASSISTANT_SCROLL_BOOST",
        "ACTION_CAMERA_APS_BOKEH_CAPTURE",
        "ACTION_GAME_ASSISTANT_SLIDE",
        "ACTION_CAMERA_APS_INNER_THDR_CAPTURE",
        "ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1",
};

namespace {

// Name -> first index in gActionList, so that resolving a name costs the same wherever it stands.
// The keys view into a private copy of the names taken at load time (defined after gActionList in
// this file, so built after it and destroyed before it); emplace keeps the first index of a
// repeated name: a duplicate's later id is unreachable by name.
const std::vector<std::string> gActionNames = gActionList;
const std::unordered_map<std::string_view, int> gActionIndex = [] {
    std::unordered_map<std::string_view, int> index;
    index.reserve(gActionNames.size());
    for (size_t i = 0; i < gActionNames.size(); ++i) {
        index.emplace(gActionNames[i], static_cast<int>(i));
    }
    return index;
}();

// The event id for "VARDEX_<action>", or -1. The prefix may stand anywhere in the text, but the
// first seven bytes are always the ones cut off: a prefix that is not in front leaves a remainder
// that names no action.
int resolveEventId(const std::string& eventId) {
    if (!stringUtils::pieces::contains(eventId, kEventPrefix)) return -1;
    const auto it = gActionIndex.find(std::string_view(eventId).substr(kEventPrefixLength));
    return it == gActionIndex.end() ? -1 : it->second;
}

std::vector<ZelClient::Resource> oneResource(int opcode, std::string value) {
    std::vector<ZelClient::Resource> list;
    list.push_back(ZelResourceInfo(opcode, std::move(value)));
    return list;
}

}  // namespace

int ZelEventAcquireWrapper(std::string eventId, std::string scene, std::string identity,
                           int timeout) {
    __android_log_print(
            ANDROID_LOG_INFO, kTag, "[%s] eventId:%s, scene:%s, identity:%s, timeout:%d",
            "ZelEventAcquireWrapper", orNone(eventId), orNone(scene), orNone(identity), timeout);
    const int cmdId = resolveEventId(eventId);
    if (cmdId < 0) return -1;
    return ZelEventAcquire(cmdId, scene, identity, timeout, {});
}

void ZelReleaseWapper(int handle) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "[%s] %d", "ZelReleaseWapper", handle);
    ZelRelease(handle);
}

int ZelNotifyWapper(std::string name, int src, int type, int param, int, int, std::string data) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "[%s] %s, src:%d, type:%d", "ZelNotifyWapper",
                        orNone(name), src, type);
    std::vector<ZelClient::Resource> list;
    switch (src) {
        case 1:
        case 10:
        case 11:
        case 12:
        case 16:
        case 110:
        case 129:
        case 1000:
            zelRuleCtlTaking(src, type, std::move(list));
            break;

        // These notifications share rule 200; the notification number is its argument while on.
        case 2:
        case 3:
        case 5:
        case 6:
            zelRuleCtlTaking(200, type == 1 ? src : 0, std::move(list));
            break;

        case 8:
            if (type == 0) {
                zelRuleCtlTaking(8, 0, std::move(list));
            } else if (type == 1 || type == 2) {
                if (param == 1) list = oneResource(kOpcodeCameraBoost, "0");
                zelRuleCtlTaking(8, type, std::move(list));
            }
            break;

        case 9:
            if (type == 0) {
                // Only the rule switch goes out: no "enable" entry accompanies it.
                zelRuleCtlTaking(9, 0, std::move(list));
            } else if (type == 1) {
                list.push_back(ZelResourceInfo(kOpcodeSceneEnable, "enable 0"));
                list.push_back(ZelResourceInfo(kOpcodeSceneLevel, "0"));
                zelRuleCtlTaking(9, 1, std::move(list));
            }
            break;

        case 14:
            if (type == 0) {
                clrGameUpgradeMode(14, 0);
            } else if (type == 1) {
                list = getGameUpgradeList(0, 0, param, 0, 0, data);
                zelRuleCtlTaking(14, 1, std::move(list));
            }
            break;

        case 15:
            if (type >= -1 && type <= 1) {
                // Low byte: the type; upper 24 bits: the low 24 bits of param.
                const uint32_t status =
                        (static_cast<uint32_t>(param) << 8) | (static_cast<uint32_t>(type) & 0xFFu);
                zelRuleCtlTaking(15, static_cast<int32_t>(status), std::move(list));
            }
            break;

        case 102:
            if (type == 1) {
                const int level = (param == 0 || param == -1) ? kDefaultFrameRateLevel : param;
                zelRuleCtlTaking(102, 1, oneResource(kOpcodeFrameRate, std::to_string(level)));
            } else if (type == 0) {
                zelRuleCtlTaking(102, 0, oneResource(kOpcodeFrameRate, "0"));
            }
            break;

        case 111:
            if (type >= -1 && type <= 1) {
                zelRuleCtlTaking(111, type, oneResource(kOpcodeCameraBoost, std::to_string(type)));
            }
            break;

        case 130:
        case 131:
        case 9000:
            if (type == 0) {
                zelRuleCtlTaking(src, 0, std::move(list));
            } else if (type == 1 && !data.empty()) {
                if (src == 130) {
                    list = getTargetLoadList(std::move(data));
                } else if (src == 131) {
                    list = getColocationList(std::move(data));
                } else {
                    list = getGameAdpList(std::move(data));
                }
                zelRuleCtlTaking(src, 1, std::move(list));
            }
            break;

        default:
            // Unknown notifications are not ours to forward.
            break;
    }
    return 0;
}
