#pragma once
// A real dev server for tests: a child process working in a given folder that listens on
// a free loopback TCP port until it is destroyed.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace omnira::testing {

class DevServer {
 public:
  explicit DevServer(const std::filesystem::path& folder) {
    int ready[2];
    if (::pipe(ready) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      if (::chdir(folder.c_str()) != 0) ::_exit(2);
      const std::string fd = std::to_string(ready[1]);
      ::execlp("python3", "python3", "-c",
               "import socket,os,sys,time\n"
               "s=socket.socket(); s.bind(('127.0.0.1',0)); s.listen()\n"
               "os.write(int(sys.argv[1]), str(s.getsockname()[1]).encode()); time.sleep(120)\n",
               fd.c_str(), nullptr);
      ::_exit(3);
    }
    ::close(ready[1]);
    char text[16] = {};
    if (pid_ > 0 && ::read(ready[0], text, sizeof text - 1) > 0) port_ = static_cast<uint16_t>(std::stoi(text));
    ::close(ready[0]);
  }
  ~DevServer() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  DevServer(const DevServer&) = delete;
  DevServer& operator=(const DevServer&) = delete;

  pid_t pid() const { return pid_; }
  uint16_t port() const { return port_; }  // 0: it did not start

 private:
  pid_t pid_ = -1;
  uint16_t port_ = 0;
};

}  // namespace omnira::testing
