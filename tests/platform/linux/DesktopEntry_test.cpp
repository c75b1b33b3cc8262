#include "OmniraCore/platform/linux/DesktopEntry.h"

#include <gtest/gtest.h>

namespace omnira::platform {
namespace {

using Strings = std::vector<std::string>;

TEST(DesktopEntry, ReadsTheEntryGroupOnlyAndRefusesEntriesWithoutOne) {
  const auto entry = parseDesktopEntry(
      "\xEF\xBB\xBF# comment\n"
      "[Desktop Entry]\n"
      "Type = Application\n"
      "Name=Files\\sand\\\\Folders\n"
      "Name[de]=Dateien\n"
      "Exec=nautilus --new-window %U\n"
      "this line has no equals sign\n"
      "=no key\n"
      "Icon=org.gnome.Nautilus\n"
      "Icon=second-icon-ignored\n"
      "StartupWMClass=org.gnome.Nautilus\n"
      "X-Flatpak=org.gnome.Nautilus\n"
      "NoDisplay=true\n"
      "Terminal=false\n"
      "\n"
      "[Desktop Action new-window]\n"
      "Name=New Window\n"
      "Exec=nautilus --other\n"
      "Hidden=true\n");  // in another group
  ASSERT_TRUE(entry.ok());
  EXPECT_EQ(entry->type, "Application");
  EXPECT_EQ(entry->name, "Files and\\Folders");  // string escapes
  EXPECT_EQ(entry->exec, "nautilus --new-window %U");
  EXPECT_EQ(entry->startupWMClass, "org.gnome.Nautilus");
  EXPECT_TRUE(entry->noDisplay);
  EXPECT_TRUE(entry->isApplication());

  using Kind = DesktopEntryFailure::Kind;
  const auto kindOf = [](std::string_view text) { return parseDesktopEntry(text).error().kind; };
  EXPECT_EQ(kindOf(""), Kind::noEntryGroup);
  EXPECT_EQ(kindOf("[Desktop Entry]\nName=x\n"), Kind::missingType);
  EXPECT_EQ(kindOf("[Desktop Entry]\nType=Application\nName[fr]=x\n"), Kind::missingName);

  // A Hidden file only deletes an id: it needs nothing else and is no application.
  const auto hidden = parseDesktopEntry("[Desktop Entry]\nHidden=true");  // the last line has no newline
  ASSERT_TRUE(hidden.ok());
  EXPECT_TRUE(hidden->hidden);
  EXPECT_FALSE(hidden->isApplication());
  const auto link = parseDesktopEntry("[Desktop Entry]\nType=Link\nName=Site\nURL=https://example.org\n");
  ASSERT_TRUE(link.ok());
  EXPECT_FALSE(link->isApplication());
}

TEST(DesktopEntry, SplitsExecByQuotingRulesAndDropsFieldCodes) {
  struct Case {
    std::string_view exec;
    Strings arguments;
  };
  const Case cases[] = {
      {"firefox %u", {"firefox"}},
      {R"("/opt/My App/app" --name "two words" %F)", {"/opt/My App/app", "--name", "two words"}},
      {R"(sh -c "echo \"hi\" \$HOME \\ %u")", {"sh", "-c", R"(echo "hi" $HOME \ %u)"}},
      {"app --file=%f 100%%", {"app", "--file=", "100%"}},
      {R"(app "" x)", {"app", "", "x"}},
  };
  for (const auto& c : cases) {
    const auto arguments = splitExec(c.exec);
    ASSERT_TRUE(arguments.ok()) << c.exec;
    EXPECT_EQ(*arguments, c.arguments) << c.exec;
  }
  EXPECT_EQ(splitExec(R"(app "unterminated)").error().kind, ExecFailure::Kind::unterminatedQuote);
  EXPECT_EQ(splitExec(R"(app "ends in backslash\)").error().kind, ExecFailure::Kind::unterminatedQuote);
  EXPECT_EQ(splitExec("  %U ").error().kind, ExecFailure::Kind::empty);
}

TEST(DesktopEntry, LaunchTargetLooksPastLaunchers) {
  struct Case {
    Strings arguments;
    LaunchTarget target;
  };
  const Case cases[] = {
      {{"firefox"}, {"firefox", {}, {}}},
      {{"env", "GDK_BACKEND=x11", "A=b/c", "/opt/tool/tool", "--x"}, {"/opt/tool/tool", {}, {}}},
      {{"env", "A=1"}, {}},
      {{"/usr/bin/flatpak", "run", "--branch=stable", "--command=firefox", "org.mozilla.firefox", "@@u", "@@"},
       {{}, "org.mozilla.firefox", {}}},
      {{"flatpak", "run", "--branch=stable"}, {}},
      {{"env", "BAMF_DESKTOP_FILE_HINT=/var/lib/snapd/desktop/applications/x.desktop", "/snap/bin/spotify"},
       {{}, {}, "spotify"}},
      {{"snap", "run", "code"}, {{}, {}, "code"}},
  };
  for (const auto& c : cases) EXPECT_EQ(launchTarget(c.arguments), c.target) << c.arguments.front();
}

TEST(DesktopEntry, SharedInterpretersNameNoApp) {
  for (const char* program : {"sh", "/bin/bash", "python3", "/usr/bin/python3.11", "perl5.36", "electron25", "env",
                              "node", "x-terminal-emulator"}) {
    EXPECT_TRUE(isSharedInterpreter(program)) << program;
  }
  for (const char* program : {"firefox", "/usr/bin/code", "nodepad", "gimp-2.10", "pythonista-app"}) {
    EXPECT_FALSE(isSharedInterpreter(program)) << program;
  }
}

}  // namespace
}  // namespace omnira::platform
