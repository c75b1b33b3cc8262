// The quit check's rules, one row per kind of process a person or an assistant may ask about.

#include "OmniraCore/containers/QuitCheck.h"

#include <gtest/gtest.h>

namespace omnira {
namespace {

constexpr uint32_t kPerson = 1000;

ProcessSample proc(int32_t pid, const char* name, int32_t parent = 1, uint32_t uid = kPerson) {
  ProcessSample p;
  p.pid = pid;
  p.parentPID = parent;
  p.name = name;
  p.uid = uid;
  p.memoryBytes = 100'000'000;
  return p;
}

QuitCheck::Context machine() {
  auto session = proc(40, "gnome-shell");
  session.sessionService = true;
  auto devServer = proc(50, "node");
  devServer.projectPath = "/home/ada/src/shop";
  auto watcher = proc(51, "esbuild", /*parent=*/50);
  auto worker = proc(52, "esbuild-worker", /*parent=*/51);
  auto inContainer = proc(110, "nginx");
  inContainer.containerID = "podman:0123456789abcdef";
  auto api = proc(60, "python3");
  api.projectPath = "/home/ada/src/api";
  QuitCheck::Context c;
  c.groups = {
      AppGroup("system", "Debian", GroupKind::system, std::nullopt, {proc(1, "systemd", 0, 0), proc(300, "sshd", 1, 0)}),
      AppGroup("firefox.desktop", "Firefox", GroupKind::app, "/usr/share/applications/firefox.desktop",
               {proc(20, "firefox")}),
      AppGroup("exec:/usr/bin/node", "node", GroupKind::other, std::nullopt, {devServer, watcher, worker}),
      AppGroup("exec:/usr/bin/python3", "python3", GroupKind::other, std::nullopt, {api}),
      AppGroup("exec:/usr/lib/postgresql/15/bin/postgres", "postgres", GroupKind::other, std::nullopt,
               {proc(70, "postgres")}),
      AppGroup("name:session", "GNOME Shell", GroupKind::other, std::nullopt, {session}),
      AppGroup("exec:/usr/bin/claude", "claude", GroupKind::other, std::nullopt, {proc(80, "claude"), proc(81, "bash", 80)}),
      AppGroup("exec:/usr/bin/omnira-app", "Omnira", GroupKind::other, std::nullopt, {proc(90, "omnira-app")}),
      AppGroup("exec:/usr/bin/vim", "vim", GroupKind::other, std::nullopt, {proc(95, "vim", 1, 1001)}),
      AppGroup("exec:/usr/bin/docker-proxy", "docker-proxy", GroupKind::other, std::nullopt,
               {proc(99, "docker-proxy")}),
      AppGroup("container:podman:0123456789abcdef", "Container 0123456789ab", GroupKind::other, std::nullopt,
               {inContainer}),
  };
  Port shop{.port = 5173, .process = PortProcess{50, "node", "exec:/usr/bin/node", "node", "/home/ada/src/shop"}};
  Port apiPort{.port = 8000, .process = PortProcess{60, "python3", "exec:/usr/bin/python3", "python3", "/home/ada/src/api"}};
  apiPort.connectedFrom = {PortProcess{20, "firefox", "firefox.desktop", "Firefox", std::nullopt}};
  Port published{.port = 8080, .process = PortProcess{99, "docker-proxy", "", "docker-proxy", std::nullopt}};
  published.container = PortContainer{"d0", "shop-db-1", "docker stop shop-db-1"};
  // Held by root's proxy, which the person's Omnira cannot see.
  Port unseen{.port = 8443};
  unseen.container = PortContainer{"e1", "shop-web-1", "docker stop shop-web-1"};
  c.ports = {shop, apiPort, published, unseen};
  ContainerSample web;
  web.engine = "Docker";
  web.id = "e1";
  web.name = "shop-web-1";
  web.composeProject = "shop";
  web.composeService = "web";
  web.composeFolder = "/home/ada/src/shop";
  web.memoryInUseBytes = 42'000'000;
  c.containers.containers = {web};
  c.personUID = kPerson;
  c.omniraPIDs = {90};
  c.askerChain = {81, 80};
  c.systemName = "Debian";
  return c;
}

TEST(QuitCheck, EachKindOfProcessGetsTheVerdictAPersonWouldAgreeWith) {
  const QuitCheck check(machine());
  struct Row {
    int32_t pid;
    QuitVerdict verdict;
    const char* reason;  // a part of it
  };
  const Row rows[] = {
      {1, QuitVerdict::doNot, "systemd (1) is part of Debian. Omnira doesn't quit those."},
      {90, QuitVerdict::doNot, "is Omnira itself"},
      {81, QuitVerdict::doNot, "runs the assistant that is asking"},
      {95, QuitVerdict::doNot, "vim (95) belongs to another user. Omnira only stops your own processes."},
      {40, QuitVerdict::doNot, "part of your desktop session"},
      {99, QuitVerdict::doNot, "Port 8080 is published by the container shop-db-1, and Omnira doesn't stop containers."},
      {110, QuitVerdict::doNot, "nginx (110) runs in the container 0123456789ab, and Omnira doesn't stop containers."},
      {60, QuitVerdict::askFirst, "connected to it right now: firefox (20)"},
      {70, QuitVerdict::askFirst, "It is a database"},
      {20, QuitVerdict::askFirst, "Firefox is an app with windows"},
      {50, QuitVerdict::safe, "A dev server of shop with nothing connected to it."},
      {52, QuitVerdict::safe, "A tool of yours that nothing else uses."},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pid);
    const auto judged = check.process(row.pid);
    ASSERT_TRUE(judged);
    EXPECT_EQ(rawValue(judged->verdict), rawValue(row.verdict));
    EXPECT_NE(judged->reason.find(row.reason), std::string::npos) << judged->reason;
  }
  EXPECT_FALSE(check.process(4242));
  EXPECT_EQ(check.process(99)->how, "docker stop shop-db-1");

  // What stops with the dev server: what it started, and what that started; all their memory.
  const auto server = check.port(5173);
  ASSERT_TRUE(server);
  EXPECT_EQ(server->pid, 50);
  EXPECT_EQ(server->alsoStops, (std::vector<StoppedProcess>{{51, "esbuild"}, {52, "esbuild-worker"}}));
  EXPECT_FALSE(check.port(22));
  const auto container = check.port(8443);
  ASSERT_TRUE(container);
  EXPECT_EQ(container->verdict, QuitVerdict::doNot);
  EXPECT_EQ(container->reason, "Port 8443 is published by the container shop-web-1, and Omnira doesn't stop containers.");
  EXPECT_EQ(container->appName, "web (shop)");
  EXPECT_EQ(check.project("shop").size(), 1u);
  EXPECT_EQ(check.project("/home/ada/src/api")[0].connectedFrom[0].pid, 20);
}

}  // namespace
}  // namespace omnira
