#pragma once

#include <string_view>

namespace wrixel2::mbservices {

/// Keys under which a band's services stand in its service table.
inline constexpr std::string_view MB_SERVICE_CONTROL = "miControl";
inline constexpr std::string_view MB_SERVICE_AUTH = "miAuth";
inline constexpr std::string_view MB_SERVICE_ANCS_ALERT = "miAncsAlert";
inline constexpr std::string_view MB_SERVICE_ALERT = "miAlert";
inline constexpr std::string_view MB_SERVICE_HEART = "miHeart";

/// Keys under which the characteristics stand in their service's table.
inline constexpr std::string_view MB_CHAR_UNK_1 = "unk1";
inline constexpr std::string_view MB_CHAR_UNK_2 = "unk2";
inline constexpr std::string_view MB_CHAR_UNK_3 = "unk3";
inline constexpr std::string_view MB_CHAR_UNK_4 = "unk4";
inline constexpr std::string_view MB_CHAR_UNK_5 = "unk5";
inline constexpr std::string_view MB_CHAR_BATTERY = "batteryInfo";
inline constexpr std::string_view MB_CHAR_STEPS = "realtimeSteps";
inline constexpr std::string_view MB_CHAR_CONFIGURE = "configData";
inline constexpr std::string_view MB_CHAR_BUTN_NOTIFY = "btnPress";
inline constexpr std::string_view MB_CHAR_CONN_PARAMS = "connParams";
inline constexpr std::string_view MB_CHAR_TIME = "timeSet";
inline constexpr std::string_view MB_CHAR_AUTH_INFO = "authInfo";
inline constexpr std::string_view MB_CHAR_ANCS_ALERT = "ancsAlertCh";
inline constexpr std::string_view MB_CHAR_ANCS_ALERT_CONTROL = "ancsAlControlCh";
inline constexpr std::string_view MB_CHAR_ALERT = "alertCh";
inline constexpr std::string_view MB_CHAR_HEART_CONTROL = "heartControl";
inline constexpr std::string_view MB_CHAR_HEART_NOTIFY = "heartNotify";

}  // namespace wrixel2::mbservices
