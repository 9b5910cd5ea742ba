#include "soak_sim.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <random>

namespace qxbench {

namespace {
constexpr int kPortLow = 20000;  // below the usual ephemeral range (32768-60999)
constexpr int kPortHigh = 32000;

bool PortFree(int port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = htons(static_cast<uint16_t>(port));
  bool ok = bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
  close(fd);
  return ok;
}

// First port of `count` consecutive free loopback ports, 0 when none was found.
int FindFreePorts(int count, std::mt19937& rng) {
  std::uniform_int_distribution<int> pick(kPortLow, kPortHigh - count);
  for (int tries = 0; tries < 200; ++tries) {
    int base = pick(rng);
    int i = 0;
    while (i < count && PortFree(base + i)) ++i;
    if (i == count) return base;
  }
  return 0;
}
}  // namespace

bool SimSupervisor::Start(std::string& err) {
  std::mt19937 rng(std::random_device{}());
  for (int attempt = 0; attempt < 5; ++attempt) {
    base_ = static_cast<uint16_t>(FindFreePorts(devices_, rng));
    if (base_ == 0) {
      err = "no " + std::to_string(devices_) + " consecutive free ports on 127.0.0.1";
      return false;
    }
    if (Launch(err)) return true;  // else another program took a port in between: try others
  }
  return false;
}

bool SimSupervisor::Launch(std::string& err) {
  std::vector<std::string> args{"--quiet", "--devices", std::to_string(devices_), "--listen",
                                "127.0.0.1:" + std::to_string(base_)};
  sim_.reset();  // reaps a previous child and removes its directory first
  sim_ = std::make_unique<qxtest::DevSim>(args);
  if (!sim_->ok()) {
    err = "simulator did not start: " + sim_->error();
    return false;
  }
  for (const auto& kl : lines_) {
    std::string r = sim_->cmd(kl.second);
    if (r.rfind("OK", 0) != 0) {
      err = "simulator refused '" + kl.second + "' after a restart: " + r;
      return false;
    }
  }
  return true;
}

std::string SimSupervisor::Apply(const std::string& key, const std::string& line, bool replay) {
  for (auto it = lines_.begin(); it != lines_.end(); ++it)
    if (it->first == key) {
      lines_.erase(it);
      break;
    }
  std::string r = sim_->cmd(line);
  if (replay && r.rfind("OK", 0) == 0) lines_.emplace_back(key, line);
  return r;
}

bool SimSupervisor::Check() {
  if (sim_->ok() && sim_->running()) return true;
  if (sim_->ok()) {  // it ran and died; else an earlier restart failed and is tried again
    deaths_.push_back(sim_->exitDescription());
    carried_ += last_;
    last_ = ChaosStats();
  }
  std::string err;
  if (!Launch(err)) {
    std::fprintf(stderr, "soak_sessions: simulator restart failed: %s\n", err.c_str());
    return false;
  }
  return true;
}

ChaosStats SimSupervisor::Chaos() {
  if (sim_->running()) last_ = ReadChaosStats(*sim_);
  ChaosStats sum = carried_;
  sum += last_;
  return sum;
}

int SimSupervisor::Stop() { return sim_->stop(); }

}  // namespace qxbench
