#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <unistd.h>

#include "OmniraCore/platform/linux/DesktopEntries.h"
#include "OmniraCore/platform/linux/OsRelease.h"

namespace omnira::platform {
namespace {

namespace fs = std::filesystem;

const std::string xdg = OMNIRA_FIXTURES "/xdg";
constexpr uint32_t person = 1000;

std::string entryFile(const std::string& relative) { return xdg + "/" + relative; }

// The machine the fixtures describe: which program paths exist, and where their links lead.
DesktopEntries::RealPath fixtureMachine() {
  static const std::map<std::string, std::string> links = {
      {"/usr/bin/firefox", "/opt/firefox/firefox"},
      {"/usr/bin/google-chrome-stable", "/opt/google/chrome/google-chrome"},
      {"/usr/bin/code", "/usr/share/code/bin/code"},
      {"/usr/bin/vim", "/usr/bin/vim.basic"},
      {"/usr/bin/chromium", "/usr/bin/chromium"},
      {"/usr/lib/chromium/chromium", "/usr/lib/chromium/chromium"},
      {"/usr/bin/konsole", "/usr/bin/konsole"},
      {"/usr/bin/gedit", "/usr/bin/gedit"},
      {"/usr/bin/kate", "/usr/bin/kate"},
  };
  return [](const std::string& path) -> std::optional<std::string> {
    const auto found = links.find(path);
    if (found == links.end()) return std::nullopt;
    return found->second;
  };
}

LinuxAppIdentifier::Config fixtureConfig() {
  LinuxAppIdentifier::Config config;
  config.desktop.dataDirs = {xdg + "/home", xdg + "/usr-share", xdg + "/flatpak", xdg + "/snapd"};
  config.desktop.programDirs = {"/usr/local/bin", "/usr/bin"};
  config.desktop.realPath = fixtureMachine();
  config.personUID = person;
  return config;
}

TEST(DesktopEntries, ScansFoldersInOrder) {
  const auto entries = DesktopEntries::scan(fixtureConfig().desktop);
  std::vector<std::string> ids;
  for (const auto& e : entries.all()) ids.push_back(e.id);
  // Broken, Link and hidden entries are gone; the person's Konsole shadows the installed one.
  EXPECT_EQ(ids, (std::vector<std::string>{
                     "org.kde.konsole.desktop", "chromium.desktop", "code.desktop", "electron-app.desktop",
                     "firefox-esr.desktop", "firefox.desktop", "gedit-new-window.desktop", "google-chrome.desktop",
                     "kde4-kate.desktop", "org.gnome.gedit.desktop", "python3.11.desktop", "tool.desktop",
                     "vim.desktop", "org.mozilla.firefox.desktop", "spotify_spotify.desktop"}));
  EXPECT_EQ(entries.withID("org.kde.konsole.desktop")->entry.name, "Konsole (mine)");
  EXPECT_EQ(entries.withID("kde4-kate.desktop")->file, entryFile("usr-share/applications/kde4/kate.desktop"));
  EXPECT_EQ(entries.withID("electron-app.desktop")->executables, std::vector<std::string>{});
  EXPECT_EQ(entries.withID("spotify_spotify.desktop")->snapName, "spotify");
  EXPECT_EQ(entries.withID("org.mozilla.firefox.desktop")->flatpakID, "org.mozilla.firefox");
  // Of two entries starting gedit, the one shown in menus.
  EXPECT_EQ(entries.forExecutable("/usr/bin/gedit")->id, "org.gnome.gedit.desktop");
  EXPECT_EQ(entries.forAppUnit("FIREFOX-ESR")->id, "firefox-esr.desktop");
  EXPECT_EQ(entries.forAppUnit("Code")->id, "code.desktop");
  EXPECT_EQ(entries.forAppUnit("no-such-app"), nullptr);
}

TEST(DesktopEntries, ScansAMissingFolderAsEmpty) {
  DesktopEntries::Source source;
  source.dataDirs = {xdg + "/no-such-folder"};
  EXPECT_TRUE(DesktopEntries::scan(source).all().empty());
}

TEST(DesktopEntries, RealPathFollowsLinks) {
  const auto dir = fs::temp_directory_path() / ("omnira-realpath-" + std::to_string(::getpid()));
  fs::create_directories(dir / "lib/app");
  std::ofstream(dir / "lib/app/app") << "binary";
  fs::create_directories(dir / "bin");
  fs::create_symlink("../lib/app/app", dir / "bin/app");
  const auto realPath = DesktopEntries::fileSystemRealPath();
  EXPECT_EQ(realPath((dir / "bin/app").string()), fs::canonical(dir / "lib/app/app").string());
  EXPECT_EQ(realPath((dir / "bin/missing").string()), std::nullopt);
  fs::remove_all(dir);
}

struct Process {
  std::string_view what;
  ProcessSample sample;
  std::string group;  // the expected group id
};

ProcessSample process(int32_t pid, std::optional<std::string> path, uint32_t uid = person) {
  ProcessSample s;
  s.pid = pid;
  s.parentPID = 1;
  s.path = std::move(path);
  s.name = s.path ? s.path->substr(s.path->rfind('/') + 1) : "";
  s.uid = uid;
  return s;
}

template <class Fn>
ProcessSample with(ProcessSample s, Fn&& change) {
  change(s);
  return s;
}

// The processes a person meets on a Linux desktop, grouped one at a time.
TEST(LinuxAppIdentifier, GroupsWhatAPersonRuns) {
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", fixtureConfig());
  const std::string firefoxESR = entryFile("usr-share/applications/firefox-esr.desktop");
  const std::string konsole = entryFile("home/applications/org.kde.konsole.desktop");
  const auto unit = [](std::string id) { return [id](ProcessSample& s) { s.appUnitID = id; }; };
  const auto inTerminal = [](std::string id) {
    return [id](ProcessSample& s) {
      s.appUnitID = id;
      s.hasTerminal = true;
    };
  };
  const std::string hash1(40, 'a'), hash2 = "0123456789abcdef0123456789abcdef01234567";

  const Process cases[] = {
      {"Firefox by its unit", with(process(10, "/usr/lib/firefox-esr/firefox-esr"), unit("firefox-esr")), firefoxESR},
      {"Firefox content process in its unit",
       with(process(11, "/usr/lib/firefox-esr/firefox-esr"),
            [](ProcessSample& s) {
              s.appUnitID = "firefox-esr";
              s.helperRole = HelperRole::renderer;
            }),
       firefoxESR},
      {"Firefox without a unit, by its executable", process(12, "/usr/lib/firefox-esr/firefox-esr"), firefoxESR},
      {"Firefox started from a shell in Konsole", with(process(13, "/usr/lib/firefox-esr/firefox-esr"), inTerminal("org.kde.konsole")),
       firefoxESR},
      {"Firefox's -bin executable", process(14, "/opt/firefox/firefox-bin"), entryFile("usr-share/applications/firefox.desktop")},
      {"a replaced executable", process(15, "/usr/lib/firefox-esr/firefox-esr (deleted)"), firefoxESR},
      {"Chromium by its unit", with(process(20, "/usr/lib/chromium/chromium"), unit("chromium")),
       entryFile("usr-share/applications/chromium.desktop")},
      {"Chromium's binary behind its launcher script", process(21, "/usr/lib/chromium/chromium"),
       entryFile("usr-share/applications/chromium.desktop")},
      {"Chrome's binary beside its launcher", process(22, "/opt/google/chrome/chrome"),
       entryFile("usr-share/applications/google-chrome.desktop")},
      {"the editor's binary above its bin/ script", process(23, "/usr/share/code/code"),
       entryFile("usr-share/applications/code.desktop")},
      {"an editor's language server in the editor's unit",
       with(process(24, "/home/ada/.vscode/extensions/rust-analyzer/server/rust-analyzer"), unit("code")),
       entryFile("usr-share/applications/code.desktop")},
      {"a unit named by StartupWMClass", with(process(25, "/opt/tool/bin/tool"), unit("Tool-Window")),
       entryFile("usr-share/applications/tool.desktop")},
      {"Flatpak app in its sandbox",
       with(process(30, "/app/lib/firefox/firefox"),
            [](ProcessSample& s) {
              s.flatpakAppID = "org.mozilla.firefox";
              s.appUnitID = "org.mozilla.firefox";
              s.hasTerminal = true;  // started with "flatpak run" from a shell: still the app
            }),
       entryFile("flatpak/applications/org.mozilla.firefox.desktop")},
      {"Flatpak's bwrap in the app-flatpak- unit", with(process(31, "/usr/bin/bwrap"), unit("org.mozilla.firefox")),
       entryFile("flatpak/applications/org.mozilla.firefox.desktop")},
      {"Snap app", process(40, "/snap/spotify/68/usr/share/spotify/spotify"),
       entryFile("snapd/applications/spotify_spotify.desktop")},
      {"Snap app after an update", process(41, "/snap/spotify/69/usr/share/spotify/spotify"),
       entryFile("snapd/applications/spotify_spotify.desktop")},
      {"Snap tool without an entry", process(42, "/snap/hello/42/bin/hello"), "exec:/snap/hello/*/bin/hello"},
      {"Snap tool after an update", process(43, "/snap/hello/x43/bin/hello"), "exec:/snap/hello/*/bin/hello"},
      {"nvm's node", process(50, "/home/ada/.nvm/versions/node/v20.1.0/bin/node"),
       "exec:/home/ada/.nvm/versions/node/*/bin/node"},
      {"nvm's newer node", process(51, "/home/ada/.nvm/versions/node/v22.3.0/bin/node"),
       "exec:/home/ada/.nvm/versions/node/*/bin/node"},
      {"an editor's remote server", process(52, "/home/ada/.vscode-server/bin/" + hash1 + "/node"),
       "exec:/home/ada/.vscode-server/bin/*/node"},
      {"the same server after an update", process(53, "/home/ada/.vscode-server/bin/" + hash2 + "/node"),
       "exec:/home/ada/.vscode-server/bin/*/node"},
      {"the remote server's newer layout",
       process(54, "/home/ada/.vscode-server/cli/servers/Stable-" + hash2 + "/server/node"),
       "exec:/home/ada/.vscode-server/cli/servers/Stable-*/server/node"},
      {"Konsole itself", with(process(60, "/usr/bin/konsole"), unit("org.kde.konsole")), konsole},
      {"bash in Konsole", with(process(61, "/usr/bin/bash"), inTerminal("org.kde.konsole")), "exec:/usr/bin/bash"},
      {"vim in Konsole", with(process(62, "/usr/bin/vim.basic"), inTerminal("org.kde.konsole")), "exec:/usr/bin/vim.basic"},
      {"node in the editor's terminal", with(process(63, "/home/ada/.nvm/versions/node/v20.1.0/bin/node"), inTerminal("code")),
       "exec:/home/ada/.nvm/versions/node/*/bin/node"},
      {"vim started from its own entry", with(process(64, "/usr/bin/vim.basic"), inTerminal("vim")),
       entryFile("usr-share/applications/vim.desktop")},
      {"python run by a timer: not the Python entry", process(65, "/usr/bin/python3.11"), "exec:/usr/bin/python3.11"},
      {"an Electron app's shared runtime", process(66, "/usr/lib/electron/electron"), "exec:/usr/lib/electron/electron"},
      {"a desktop session service",
       with(process(70, "/usr/bin/pipewire"), [](ProcessSample& s) { s.sessionService = true; }), "system"},
      {"a shell inside a session service's terminal",
       with(process(71, "/usr/bin/bash"),
            [](ProcessSample& s) {
              s.sessionService = true;
              s.hasTerminal = true;
            }),
       "exec:/usr/bin/bash"},
      {"root's sshd", process(80, "/usr/sbin/sshd", 0), "system"},
      {"root's tool outside system folders", process(81, "/opt/agent/bin/agent", 0), "system"},
      {"a system user's daemon", process(82, "/usr/bin/dbus-daemon", 100), "system"},
      {"the person's own daemon in /usr/bin", process(83, "/usr/bin/dbus-daemon"), "exec:/usr/bin/dbus-daemon"},
      {"systemd's user manager", process(84, "/usr/lib/systemd/systemd"), "system"},
      {"nobody is not a system user", process(85, "/opt/x/x", 65534), "exec:/opt/x/x"},
      {"a kernel thread",
       with(process(90, std::nullopt, 0),
            [](ProcessSample& s) {
              s.name = "kworker/0:1-events";
              s.kernelThread = true;
            }),
       "system"},
      {"a process without a path", with(process(91, std::nullopt), [](ProcessSample& s) { s.name = "a) b"; }), "name:a) b"},
      {"a program run from a memory file",
       with(process(93, "/memfd:sealed-91173221a7ea (deleted)"), [](ProcessSample& s) { s.name = "runner"; }),
       "name:runner"},
      {"an app unit without an entry", with(process(92, "/opt/thing/thing"), unit("thing")), "exec:/opt/thing/thing"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(grouper->descriptor(c.sample).id, c.group) << c.what;
  }

  const auto firefox = grouper->descriptor(cases[0].sample);
  EXPECT_EQ(firefox, (AppGrouper::Descriptor{firefoxESR, "Firefox ESR", GroupKind::app, firefoxESR}));
  const auto system = grouper->descriptor(process(1, "/usr/sbin/sshd", 0));
  EXPECT_EQ(system, (AppGrouper::Descriptor{"system", "Debian GNU/Linux", GroupKind::system, std::nullopt}));
  EXPECT_EQ(grouper->descriptor(cases[18].sample).name, "node");
}

TEST(LinuxAppIdentifier, RootIsAPersonWhenTheMonitorRunsAsRoot) {
  auto config = fixtureConfig();
  config.personUID = 0;
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", config);
  EXPECT_EQ(grouper->descriptor(process(1, "/opt/agent/bin/agent", 0)).id, "exec:/opt/agent/bin/agent");
  EXPECT_EQ(grouper->descriptor(process(2, "/usr/sbin/sshd", 0)).id, "system");
  EXPECT_EQ(grouper->descriptor(process(3, "/usr/bin/dbus-daemon", 100)).id, "system");
}

// Helpers follow their app; a tool started from the app's terminal does not.
TEST(LinuxAppIdentifier, GroupsHelpersWithTheirApp) {
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", fixtureConfig());
  const auto child = [](int32_t pid, int32_t parent, std::string path, std::optional<HelperRole> role) {
    auto s = process(pid, std::move(path));
    s.parentPID = parent;
    s.helperRole = role;
    s.memoryBytes = 100;
    return s;
  };
  // Chromium started by a launcher that made no unit.
  std::vector<ProcessSample> tick = {
      child(100, 1, "/usr/lib/chromium/chromium", std::nullopt),
      child(101, 100, "/usr/lib/chromium/chromium", HelperRole::other),  // zygote
      child(102, 101, "/usr/lib/chromium/chromium", HelperRole::renderer),
      child(103, 100, "/usr/lib/chromium/chrome_crashpad_handler", HelperRole::other),
      child(104, 101, "/usr/lib/chromium/nacl_helper", HelperRole::other),
      // A terminal inside the editor: its shell keeps its own group.
      child(200, 1, "/usr/share/code/code", std::nullopt),
      child(201, 200, "/usr/bin/bash", std::nullopt),
      // A helper with no app above it keeps its own group, never the system's.
      child(300, 1, "/opt/orphan/orphan-helper", HelperRole::gpu),
  };
  tick[6].hasTerminal = true;
  tick[6].appUnitID = "code";

  std::map<std::string, std::vector<int32_t>> members;
  for (const auto& g : grouper->group(tick)) {
    for (const auto& p : g.processes) members[g.id].push_back(p.pid);
  }
  EXPECT_EQ(members[entryFile("usr-share/applications/chromium.desktop")], (std::vector<int32_t>{100, 101, 102, 103, 104}));
  EXPECT_EQ(members[entryFile("usr-share/applications/code.desktop")], (std::vector<int32_t>{200}));
  EXPECT_EQ(members["exec:/usr/bin/bash"], (std::vector<int32_t>{201}));
  EXPECT_EQ(members["exec:/opt/orphan/orphan-helper"], (std::vector<int32_t>{300}));
  EXPECT_EQ(members.size(), 4u);
}

TEST(LinuxAppIdentifier, FoldsInstallFolders) {
  const std::string commit(64, 'c');
  const std::string hash = "0123456789abcdef0123456789abcdef01234567";
  struct Case {
    std::string path, folded;
  };
  const Case cases[] = {
      {"/snap/firefox/4173/usr/lib/firefox/firefox", "/snap/firefox/*/usr/lib/firefox/firefox"},
      {"/snap/hello/x1/bin/hello", "/snap/hello/*/bin/hello"},
      {"/snap/hello/current/bin/hello", "/snap/hello/current/bin/hello"},
      {"/snap/4173", "/snap/4173"},
      {"/opt/snap/x/12/bin/x", "/opt/snap/x/12/bin/x"},
      {"/var/lib/flatpak/app/org.gimp.GIMP/x86_64/stable/" + commit + "/files/bin/gimp",
       "/var/lib/flatpak/app/org.gimp.GIMP/x86_64/stable/*/files/bin/gimp"},
      {"/home/ada/.local/share/flatpak/app/org.gimp.GIMP/x86_64/stable/" + commit + "/files/bin/gimp",
       "/home/ada/.local/share/flatpak/app/org.gimp.GIMP/x86_64/stable/*/files/bin/gimp"},
      {"/home/ada/.vscode-server/bin/" + hash + "/node", "/home/ada/.vscode-server/bin/*/node"},
      {"/home/ada/.vscode-server/cli/servers/Insiders-" + hash + "/server/node",
       "/home/ada/.vscode-server/cli/servers/Insiders-*/server/node"},
      {"/opt/x/abcdefg/bin/x", "/opt/x/abcdefg/bin/x"},
      {"/opt/tools/" + hash, "/opt/tools/" + hash},  // the executable's own name stays
      {"/usr/bin/tool (deleted)", "/usr/bin/tool"},
  };
  for (const auto& c : cases) EXPECT_EQ(LinuxAppIdentifier::foldInstallFolders(c.path), c.folded) << c.path;
}

TEST(LinuxAppIdentifier, ReloadFindsNewlyInstalledApps) {
  const auto dir = fs::temp_directory_path() / ("omnira-reload-" + std::to_string(::getpid()));
  fs::create_directories(dir / "applications");
  auto config = fixtureConfig();
  config.desktop.dataDirs = {dir};
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", config);
  auto sample = process(1, "/opt/new/new");
  sample.appUnitID = "new-app";
  EXPECT_EQ(grouper->descriptor(sample).id, "exec:/opt/new/new");

  std::ofstream(dir / "applications/new-app.desktop") << "[Desktop Entry]\nType=Application\nName=New\nExec=/opt/new/new\n";
  EXPECT_EQ(grouper->descriptor(sample).id, "exec:/opt/new/new") << "scanned once, not per tick";
  grouper->reload();
  EXPECT_EQ(grouper->descriptor(sample).id, (dir / "applications/new-app.desktop").string());
  fs::remove_all(dir);
}

TEST(LinuxAppIdentifier, ConfigFromEnvironment) {
  const std::map<std::string, std::string> environment = {
      {"HOME", "/home/ada"},
      {"XDG_DATA_DIRS", "/usr/share/gnome:relative/ignored:/usr/local/share/:/usr/share:/var/lib/flatpak/exports/share"},
      {"PATH", "/home/ada/bin:/usr/bin"},
  };
  const auto config = LinuxAppIdentifier::Config::fromEnvironment(
      [&](const std::string& name) -> std::optional<std::string> {
        const auto found = environment.find(name);
        if (found == environment.end()) return std::nullopt;
        return found->second;
      },
      1000);
  EXPECT_EQ(config.personUID, 1000u);
  EXPECT_EQ(config.desktop.dataDirs,
            (std::vector<fs::path>{"/home/ada/.local/share", "/usr/share/gnome", "/usr/local/share", "/usr/share",
                                   "/var/lib/flatpak/exports/share", "/home/ada/.local/share/flatpak/exports/share",
                                   "/var/lib/snapd/desktop"}));
  EXPECT_EQ(config.desktop.programDirs.front(), "/home/ada/bin");
  EXPECT_EQ(config.desktop.programDirs.back(), "/home/ada/.local/bin");

  const auto bare = LinuxAppIdentifier::Config::fromEnvironment([](const std::string&) { return std::nullopt; }, 0);
  EXPECT_EQ(bare.desktop.dataDirs, (std::vector<fs::path>{"/usr/local/share", "/usr/share", "/var/lib/flatpak/exports/share",
                                                          "/var/lib/snapd/desktop"}));
}

TEST(OsRelease, ReadsTheDistributionName) {
  EXPECT_EQ(readOperatingSystemName(OMNIRA_FIXTURES "/os-release").valueOr(""), "Debian GNU/Linux");
  EXPECT_EQ(parseOsReleaseName("ID=arch\nNAME=Arch\\ Linux"), "Arch Linux");
  EXPECT_EQ(parseOsReleaseName("NAME='Fedora Linux'\nNAME=Other\n"), "Fedora Linux");
  EXPECT_EQ(parseOsReleaseName("NAME=\"Say \\\"hi\\\"\"\n"), "Say \"hi\"");
  EXPECT_EQ(parseOsReleaseName("PRETTY_NAME=\"x\"\nNAME=\n"), std::nullopt);
  const auto missing = readOperatingSystemName(OMNIRA_FIXTURES "/no-such-root");
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().kind, OsReleaseFailure::Kind::unreadable);
}

}  // namespace
}  // namespace omnira::platform
