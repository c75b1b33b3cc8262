#pragma once
// Where the desktop's notification service answers on the session bus.
// https://specifications.freedesktop.org/notification-spec/latest/
// Bodies are markup where the server has "body-markup", so they go through markupText
// (a name like "<a href=...>" stays text); summaries are plain text and go as they are.

namespace omnira::notifications {

inline constexpr const char* service = "org.freedesktop.Notifications";
inline constexpr const char* path = "/org/freedesktop/Notifications";
inline constexpr const char* interface = "org.freedesktop.Notifications";

}  // namespace omnira::notifications
