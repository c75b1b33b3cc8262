// Which app or session service a process belongs to, from its control group.

#include "OmniraCore/platform/linux/SystemdUnit.h"

#include <gtest/gtest.h>

namespace omnira::platform {
namespace {

constexpr std::string_view kUser = "/user.slice/user-1000.slice/user@1000.service";

// Unified and hybrid files that name a unit are read through the fixture tree (LibProc_test).
TEST(SystemdUnit, CgroupFilesWithoutTheSystemdHierarchyFail) {
  EXPECT_FALSE(systemdCgroupPath("4:memory:/x\n3:cpuset:/\n").ok());
}

TEST(SystemdUnit, ReadsAppIDsOfAppUnits) {
  struct Case {
    std::string_view unit;
    std::optional<std::string> id;
  };
  const Case cases[] = {
      {"app-gnome-firefox-1234.scope", "firefox"},
      {"app-org.kde.konsole@12ab.service", "org.kde.konsole"},
      {"app-flatpak-org.mozilla.firefox-5678.scope", "org.mozilla.firefox"},
      {"app-firefox-1234.scope", "firefox"},                                     // no launcher
      {"app-gnome-google\\x2dchrome-99.scope", "google-chrome"},                 // escaped dash
      {"app-1234.scope", std::nullopt},  // only the random part
      {"app-.service", std::nullopt},
      {"app-gnome-firefox-1234.slice", std::nullopt},
      {"dbus.service", std::nullopt},
      {"application-x.service", std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.unit);
    EXPECT_EQ(appIDOfUnit(c.unit), c.id);
  }
}

TEST(SystemdUnit, UnescapesAndSurvivesMalformedEscapes) {
  EXPECT_EQ(unescapeUnitName("a\\x2db"), "a-b");
  EXPECT_EQ(unescapeUnitName("a\\x2"), "a\\x2");
  EXPECT_EQ(unescapeUnitName("a\\xZZb"), "a\\xZZb");
  EXPECT_EQ(unescapeUnitName("trailing\\"), "trailing\\");
  EXPECT_EQ(unescapeUnitName("\\x\\x2d"), "\\x-");
  EXPECT_EQ(unescapeUnitName("\\\\x2d"), "\\-");
  // The same inside whole unit names.
  EXPECT_EQ(appIDOfUnit("app-gnome-bad\\x2-1.scope"), "bad\\x2");
}

TEST(SystemdUnit, TellsAppsFromTheSessionsOwnServices) {
  auto at = [](std::string_view rest) { return sessionUnitOf(std::string(kUser) + std::string(rest)); };
  EXPECT_EQ(at("/app.slice/app-gnome-firefox-1234.scope"), (SessionUnit{"firefox", false}));
  EXPECT_EQ(at("/app.slice/app-org.gnome.Terminal.slice/app-gnome-org.gnome.Nautilus-5.scope"),
            (SessionUnit{"org.gnome.Nautilus", false}));
  EXPECT_EQ(at("/app.slice/snap.firefox.firefox-0b5c2a.scope"), (SessionUnit{"firefox_firefox", false}));
  // Started on the person's behalf, but no app of its own: a terminal's shell.
  EXPECT_EQ(at("/app.slice/app-org.gnome.Terminal.slice/vte-spawn-1b2c.scope"), (SessionUnit{}));
  // The session's own services.
  EXPECT_EQ(at("/session.slice/org.gnome.Shell@wayland.service"), (SessionUnit{std::nullopt, true}));
  EXPECT_EQ(at("/background.slice/tracker-miner-fs-3.service"), (SessionUnit{std::nullopt, true}));
  EXPECT_EQ(at("/app.slice/dbus.service"), (SessionUnit{std::nullopt, true}));
  // An app unit outside app.slice is not trusted as one.
  EXPECT_EQ(at("/session.slice/app-gnome-firefox-1234.scope"), (SessionUnit{std::nullopt, true}));
  // Not under the user's manager at all.
  EXPECT_EQ(sessionUnitOf("/system.slice/ssh.service"), SessionUnit{});
  EXPECT_EQ(sessionUnitOf("/user.slice/user-1000.slice/session-2.scope"), SessionUnit{});
  EXPECT_EQ(sessionUnitOf("/user.slice/user@x.service/app.slice/app-a-b-1.scope"), SessionUnit{});
}

}  // namespace
}  // namespace omnira::platform
