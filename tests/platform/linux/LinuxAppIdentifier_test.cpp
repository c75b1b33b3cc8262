#include "OmniraCore/platform/linux/LinuxAppIdentifier.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "OmniraCore/platform/linux/DesktopEntries.h"
#include "OmniraCore/platform/linux/OsRelease.h"
#include "tests/platform/linux/TempTree.h"

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
  // Of two entries starting gedit, the one shown in menus.
  EXPECT_EQ(entries.forExecutable("/usr/bin/gedit")->id, "org.gnome.gedit.desktop");
  EXPECT_EQ(entries.forAppUnit("FIREFOX-ESR")->id, "firefox-esr.desktop");
}

// The folders of a real PATH are listed rather than asked name by name: what the listing
// holds must resolve exactly as asking did.
TEST(DesktopEntries, LooksProgramsUpInRealFolders) {
  TempTree tree;
  const auto entry = [&](const std::string& id, const std::string& exec) {
    tree.write("apps/applications/" + id + ".desktop", "[Desktop Entry]\nType=Application\nName=X\nExec=" + exec + "\n");
  };
  tree.write("opt/editor/editor", "binary");
  tree.write("opt/editor/editor-bin", "binary");
  tree.link("second/editor", tree.root() / "opt/editor/editor");
  tree.link("first/editor", tree.root() / "nowhere");  // dangling: the next folder's wins
  tree.write("second/tool", "binary");
  entry("editor", "editor %F");
  entry("tool", "tool");
  entry("gone", "gone");
  // Enough programs that the folders are listed rather than asked path by path.
  for (int i = 0; i < 20; ++i) {
    tree.write("second/tool" + std::to_string(i), "binary");
    entry("tool" + std::to_string(i), "tool" + std::to_string(i));
  }

  DesktopEntries::Source source;
  source.dataDirs = {tree.root() / "apps"};
  source.programDirs = {tree.root() / "missing", tree.root() / "first", tree.root() / "second"};
  const auto entries = DesktopEntries::scan(source);
  const auto real = fs::canonical(tree.root()).string();
  EXPECT_EQ(entries.forExecutable(real + "/opt/editor/editor")->id, "editor.desktop");
  EXPECT_EQ(entries.forExecutable(real + "/opt/editor/editor-bin")->id, "editor.desktop");
  EXPECT_TRUE(entries.withID("gone.desktop")->executables.empty());

  // The real-path lookup the scan uses by default: links followed, missing files absent.
  const auto realPath = DesktopEntries::fileSystemRealPath();
  EXPECT_EQ(realPath((tree.root() / "second/editor").string()), real + "/opt/editor/editor");
}

// How a process was started, as the sampler reports it.
struct Launch {
  const char* unit = nullptr;
  bool terminal = false;
  bool session = false;
  std::optional<HelperRole> role;
  const char* flatpak = nullptr;
  uint32_t uid = person;
  const char* name = nullptr;  // else the executable's file name
  bool kernel = false;
};

ProcessSample process(std::optional<std::string> path, const Launch& launch = {}, int32_t pid = 1) {
  ProcessSample s;
  s.pid = pid;
  s.parentPID = 1;
  s.path = std::move(path);
  s.name = launch.name ? launch.name : s.path ? s.path->substr(s.path->rfind('/') + 1) : "";
  s.uid = launch.uid;
  if (launch.unit) s.appUnitID = launch.unit;
  if (launch.flatpak) s.flatpakAppID = launch.flatpak;
  s.hasTerminal = launch.terminal;
  s.sessionService = launch.session;
  s.helperRole = launch.role;
  s.kernelThread = launch.kernel;
  return s;
}

// The processes a person meets on a Linux desktop, grouped one at a time.
TEST(LinuxAppIdentifier, GroupsWhatAPersonRuns) {
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", fixtureConfig());
  const std::string firefoxESR = entryFile("usr-share/applications/firefox-esr.desktop");
  const std::string esr = "/usr/lib/firefox-esr/firefox-esr";
  const std::string chromium = entryFile("usr-share/applications/chromium.desktop");
  const std::string flatpakFirefox = entryFile("flatpak/applications/org.mozilla.firefox.desktop");
  const std::string code = entryFile("usr-share/applications/code.desktop");
  const std::string spotify = entryFile("snapd/applications/spotify_spotify.desktop");
  const std::string nvmNode = "/home/ada/.nvm/versions/node/v20.1.0/bin/node";
  struct Case {
    std::string_view what;
    std::optional<std::string> path;
    std::string group;  // the expected group id
    Launch launch = {};
  };
  const Case cases[] = {
      {"Firefox by its unit", esr, firefoxESR, {.unit = "firefox-esr"}},
      {"Firefox started from a shell in Konsole", esr, firefoxESR, {.unit = "org.kde.konsole", .terminal = true}},
      {"Chromium's binary behind its launcher script", "/usr/lib/chromium/chromium", chromium},
      {"the editor's binary above its bin/ script", "/usr/share/code/code", code},
      {"an editor's language server in the editor's unit",
       "/home/ada/.vscode/extensions/rust-analyzer/server/rust-analyzer", code, {.unit = "code"}},
      {"a unit named by StartupWMClass", "/opt/tool/bin/tool", entryFile("usr-share/applications/tool.desktop"),
       {.unit = "Tool-Window"}},
      // Started with "flatpak run" from a shell: still the app.
      {"Flatpak app in its sandbox", "/app/lib/firefox/firefox", flatpakFirefox,
       {.unit = "org.mozilla.firefox", .terminal = true, .flatpak = "org.mozilla.firefox"}},
      {"Snap app", "/snap/spotify/68/usr/share/spotify/spotify", spotify},
      // Nix and AppImage paths are folded as the snap's is (FoldsInstallFolders).
      {"nvm's node", nvmNode, "exec:/home/ada/.nvm/versions/node/*/bin/node"},
      {"Konsole itself", "/usr/bin/konsole", entryFile("home/applications/org.kde.konsole.desktop"),
       {.unit = "org.kde.konsole"}},
      {"python run by a timer: not the Python entry", "/usr/bin/python3.11", "exec:/usr/bin/python3.11"},
      {"a desktop session service", "/usr/bin/pipewire", "system", {.session = true}},
      {"root's tool outside system folders", "/opt/agent/bin/agent", "system", {.uid = 0}},
      {"a system user's daemon", "/usr/bin/dbus-daemon", "system", {.uid = 100}},
      {"the person's own daemon in /usr/bin", "/usr/bin/dbus-daemon", "exec:/usr/bin/dbus-daemon"},
      {"nobody is not a system user", "/opt/x/x", "exec:/opt/x/x", {.uid = 65534}},
      {"a kernel thread", std::nullopt, "system", {.uid = 0, .name = "kworker/0:1-events", .kernel = true}},
      {"a program run from a memory file", "/memfd:sealed-91173221a7ea (deleted)", "name:runner", {.name = "runner"}},
      {"an app unit without an entry", "/opt/thing/thing", "exec:/opt/thing/thing", {.unit = "thing"}},
  };
  int32_t pid = 10;
  for (const auto& c : cases) {
    EXPECT_EQ(grouper->descriptor(process(c.path, c.launch, pid++)).id, c.group) << c.what;
  }

  EXPECT_EQ(grouper->descriptor(process(esr, {.unit = "firefox-esr"})),
            (AppGrouper::Descriptor{firefoxESR, "Firefox ESR", GroupKind::app, firefoxESR}));
}

// Run as root, the monitor's person is root: what root starts by hand is root's own, while
// the daemons the service manager starts for the machine stay the system's.
TEST(LinuxAppIdentifier, RootsOwnProgramsAndTheMachinesDaemonsWhenTheMonitorRunsAsRoot) {
  auto config = fixtureConfig();
  config.personUID = 0;
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", config);
  const std::string firefoxESR = entryFile("usr-share/applications/firefox-esr.desktop");
  struct Case {
    std::string_view what;
    std::string path;
    std::string group;
    Launch launch = {};
  };
  const Case cases[] = {
      {"a daemon outside the system folders", "/opt/agent/bin/agent", "system", {.uid = 0}},
      {"a daemon from a Nix profile", "/nix/store/" + std::string(32, 'a') + "-tailscale-1.56.1/bin/tailscaled",
       "system", {.uid = 0}},
      {"root's tool started in a terminal", "/opt/agent/bin/agent", "exec:/opt/agent/bin/agent",
       {.terminal = true, .uid = 0}},
      {"root's editor in its app unit", "/usr/lib/firefox-esr/firefox-esr", firefoxESR,
       {.unit = "firefox-esr", .uid = 0}},
      {"another person's program", "/opt/agent/bin/agent", "exec:/opt/agent/bin/agent", {.uid = 1000}},
  };
  int32_t pid = 10;
  for (const auto& c : cases) {
    EXPECT_EQ(grouper->descriptor(process(c.path, c.launch, pid++)).id, c.group) << c.what;
  }
}

// A launcher that made no unit: Chromium's helpers still join it.
TEST(LinuxAppIdentifier, GroupsHelpersWithTheirApp) {
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", fixtureConfig());
  const auto child = [](int32_t pid, int32_t parent, std::string path, std::optional<HelperRole> role) {
    auto s = process(std::move(path), {.role = role}, pid);
    s.parentPID = parent;
    return s;
  };
  const auto groups = grouper->group({
      child(100, 1, "/usr/lib/chromium/chromium", std::nullopt),
      child(101, 100, "/usr/lib/chromium/chromium", HelperRole::other),  // zygote
      child(102, 101, "/usr/lib/chromium/chromium", HelperRole::renderer),
      child(103, 100, "/usr/lib/chromium/chrome_crashpad_handler", HelperRole::other),
      child(104, 101, "/usr/lib/chromium/nacl_helper", HelperRole::other),
  });
  ASSERT_EQ(groups.size(), 1u);
  EXPECT_EQ(groups[0].id, entryFile("usr-share/applications/chromium.desktop"));
  EXPECT_EQ(groups[0].processCount(), 5u);
}

TEST(LinuxAppIdentifier, FoldsInstallFolders) {
  const std::string commit(64, 'c');
  const std::string hash = "0123456789abcdef0123456789abcdef01234567";
  const std::string nixHash = "0c0qnpkrhmc1yhwb8ihm5q2vqsa9lsvr";
  struct Case {
    std::string path, folded;
  };
  const Case cases[] = {
      {"/snap/firefox/4173/usr/lib/firefox/firefox", "/snap/firefox/*/usr/lib/firefox/firefox"},
      {"/snap/hello/current/bin/hello", "/snap/hello/current/bin/hello"},
      {"/var/lib/flatpak/app/org.gimp.GIMP/x86_64/stable/" + commit + "/files/bin/gimp",
       "/var/lib/flatpak/app/org.gimp.GIMP/x86_64/stable/*/files/bin/gimp"},
      {"/home/ada/.vscode-server/bin/" + hash + "/node", "/home/ada/.vscode-server/bin/*/node"},
      {"/opt/tools/" + hash, "/opt/tools/" + hash},  // the executable's own name stays
      {"/usr/bin/tool (deleted)", "/usr/bin/tool"},
      // Nix: the store hash and the version change with every update; the package name stays.
      {"/nix/store/" + nixHash + "-nodejs-20.11.0/bin/node", "/nix/store/*-nodejs-*/bin/node"},
      {"/nix/store/" + nixHash + "-hello-2.12.1/bin/hello (deleted)", "/nix/store/*-hello-*/bin/hello"},
      {"/nix/store/" + std::string(32, 'e') + "-x-1.0/bin/x", "/nix/store/" + std::string(32, 'e') + "-x-1.0/bin/x"},
      // AppImage: each launch mounts the image under a fresh random folder.
      {"/tmp/.mount_CursorAb12Cd/usr/share/cursor/cursor", "/tmp/.mount_*/usr/share/cursor/cursor"},
      {"/tmp/.mount_short/x", "/tmp/.mount_short/x"},
  };
  for (const auto& c : cases) EXPECT_EQ(LinuxAppIdentifier::foldInstallFolders(c.path), c.folded) << c.path;
}

TEST(LinuxAppIdentifier, ReloadFindsNewlyInstalledApps) {
  TempTree dir;
  auto config = fixtureConfig();
  config.desktop.dataDirs = {xdg + "/no-such-folder", dir.root()};
  const auto grouper = makeLinuxAppGrouper("Debian GNU/Linux", config);
  const auto sample = process("/opt/new/new", {.unit = "new-app"});
  EXPECT_EQ(grouper->descriptor(sample).id, "exec:/opt/new/new");

  dir.write("applications/new-app.desktop", "[Desktop Entry]\nType=Application\nName=New\nExec=/opt/new/new\n");
  EXPECT_EQ(grouper->descriptor(sample).id, "exec:/opt/new/new") << "scanned once, not per tick";
  grouper->reload();
  EXPECT_EQ(grouper->descriptor(sample).id, (dir.root() / "applications/new-app.desktop").string());
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
  EXPECT_EQ(config.desktop.dataDirs,
            (std::vector<fs::path>{"/home/ada/.local/share", "/usr/share/gnome", "/usr/local/share", "/usr/share",
                                   "/var/lib/flatpak/exports/share", "/home/ada/.local/share/flatpak/exports/share",
                                   "/var/lib/snapd/desktop"}));
  EXPECT_EQ(config.desktop.programDirs.front(), "/home/ada/bin");
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
