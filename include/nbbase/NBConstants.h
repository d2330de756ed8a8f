// The vocabulary shared by the library, the host application, its web pages and its plug-ins: event names,
// web-view actions, local URL actions and the client's own URLs, popup scenes, persist-data actions,
// notification and command names, and the update and version constants.
//
// Web pages and stored settings match these strings byte for byte, so their misspellings are part of the
// interface: the event name NIMBO_EVENT_GAMNE_QUEUE (its value is spelt right) and the "Upate" notifications.
#pragma once

namespace nb {

// Event names, posted through NBEventCenter.
inline constexpr char NIMBO_EVENT_APP_STARTED[] = "nimbo-event-app-started";
inline constexpr char NIMBO_EVENT_LOGIN_SUCCESS[] = "nimbo-event-login-success";
inline constexpr char NIMBO_EVENT_SIGN_OUT[] = "nimbo-event-sign-out";
inline constexpr char NIMBO_EVENT_MAIN_WINDOW_SHOW[] = "nimbo-event-main-window-show";
inline constexpr char NIMBO_EVENT_LAUNCHING_GAME[] = "nimbo-event-launching-game";
inline constexpr char NIMBO_EVENT_GAME_STARTED[] = "nimbo-event-game-started";
inline constexpr char NIMBO_EVENT_GAMNE_QUEUE[] = "nimbo-event-game-queue";
inline constexpr char NIMBO_EVENT_GAME_FINISHED[] = "nimbo-event-game-finished";
inline constexpr char NIMBO_EVENT_GAME_FAILED[] = "nimbo-event-game-failed";
inline constexpr char NIMBO_EVENT_GAME_ACTIVATE_WINDOW[] = "nimbo-event-game-activate-window";
inline constexpr char NIMBO_EVENT_GAME_SESSION_ERROR[] = "nimbo-event-game-session-error";
inline constexpr char NIMBO_EVENT_SHOW_ABOUT[] = "nimbo-event-show-about";
inline constexpr char NIMBO_EVENT_OPEN_VIP_WEBPAGE[] = "nimbo-event-open-vip-webpage";
inline constexpr char NIMBO_EVENT_VIP_WEBPAGE_CLOSED[] = "nimbo-event-vip-webpage-closed";
inline constexpr char NIMBO_EVENT_MAIN_WINDOW_VISIBLE[] = "nimbo-event-main-window-visible";
inline constexpr char NIMBO_EVENT_CHECK_COUPON[] = "nimbo-event-check-coupon";
inline constexpr char NIMBO_EVENT_COMMON_CALL_WEB_METHOD[] = "nimbo-event-common-call-web-method";
inline constexpr char NIMBO_EVENT_PERSIST_DATA[] = "nimbo-event-persist-data";
inline constexpr char NIMBO_EVENT_REQUEST_PERSIST_DATA[] = "nimbo-event-request-persist-data";

// Actions the client's web pages ask the native side to perform.
inline constexpr char kWebViewActionOpenVipPage[] = "openVipWebPage";
inline constexpr char kWebViewActionOpenBenefitPage[] = "openBenefitWebPage";
inline constexpr char kWebViewActionOpenObtainGamePage[] = "openObtainGameWebPage";
inline constexpr char kWebViewActionCancelLoginAuth[] = "cancelLoginAuth";
inline constexpr char kWebViewActionOpenUserRightDetailPage[] = "openUserRightDetailWebPage";
inline constexpr char kWebViewActionOpenNimboProtocol[] = "openNimboProtocol";
inline constexpr char kWebViewActionBackToMainUI[] = "backToMainUI";
inline constexpr char kWebViewActionNotifyAppRelaunch[] = "actionNotifyAppRelaunch";

// Local URL actions, and the client's own URLs (scheme "nimbo").
inline constexpr char kNimboUrlLocalActionStopHangUp[] = "nimboUrlLocalActionStopHangUp";
inline constexpr char kNimboUrlLocalActionCancel[] = "nimboUrlLocalActionCancel";
inline constexpr char kNimboUrlLocalActionOpenMenu[] = "nimboUrlLocalActionOpenMenu";
inline constexpr char kNimboUrlWelfareCenter[] = "nimbo://client.korvane-nimbo.com/welfare_center";
inline constexpr char kNimboUrlVipCenter[] = "nimbo://client.korvane-nimbo.com/vip_center";
inline constexpr char kNimboUrlSVipCenter[] = "nimbo://client.korvane-nimbo.com/svip_center";
inline constexpr char kNimboUrlTimeCard[] = "nimbo://client.korvane-nimbo.com/time_card";

// Popup scenes, by which popups and scene tasks are requested.
inline constexpr char kSceneGameDetailPage[] = "game_detail_page";
inline constexpr char kScenePreLaunchGame[] = "pre_launch_game";
inline constexpr char kSceneGamePlaying[] = "game_playing";
inline constexpr char kSceneActivityGameNeedPermission[] = "activity_game_need_permission";

// Persist-data actions, notifications and commands.
inline constexpr char kPersistDataActionRequestInterest[] = "persistDataRequestInterest";
inline constexpr char kPersistDataActionRequestHangUpInfo[] = "persistDataRequestHangUpInfo";
inline constexpr char kNotifyGameHangupUpate[] = "notifyGameHangupUpate";
inline constexpr char kNotifyUserInterestUpate[] = "notifyUserInterestUpate";
inline constexpr char kNotifyGameConfigureUpate[] = "notifyGameConfigureUpate";
inline constexpr char kNotifyNBGameAppExit[] = "notifyNBGameAppExit";
inline constexpr char kCommandShowPQInterestExpiredTips[] = "commandShowPQInterestExpiredTips";
inline constexpr char kNotifyDismissQRWindow[] = "notifyDismissQRWindow";

// Seconds between automatic update checks.
inline constexpr double UPDATE_CHECK_INTERVAL = 3600.0;
// The user-defaults key under which the updater records the version the user chose to skip.
inline constexpr char UpgradeSkippedVersionKey[] = "SUSkippedVersion";

inline constexpr double NBBaseVersionNumber = 0.0;
// The "what" string: two blanks before PROJECT, a trailing newline, then the terminating null.
inline constexpr unsigned char NBBaseVersionString[] = "@(#)PROGRAM:NBBase  PROJECT:NIMBO-amd64-only-\n";

}  // namespace nb
