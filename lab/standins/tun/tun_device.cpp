#include "tun/tun_device.h"

#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace tun {
namespace {

constexpr int kTunQueuePackets = 2000;

ifreq RequestFor(const std::string& name) {
  ifreq request = {};
  std::memcpy(request.ifr_name, name.data(), name.size());
  return request;
}

void BringUp(const std::string& name, int mtu) {
  const File control(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request = RequestFor(name);
  request.ifr_mtu = mtu;
  if (::ioctl(control.Get(), SIOCSIFMTU, &request) != 0) Fail("MTU of " + name);
  request = RequestFor(name);
  request.ifr_qlen = kTunQueuePackets;
  if (::ioctl(control.Get(), SIOCSIFTXQLEN, &request) != 0) Fail("Queue of " + name);
  request = RequestFor(name);
  if (::ioctl(control.Get(), SIOCGIFFLAGS, &request) != 0) Fail("Flags of " + name);
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
  if (::ioctl(control.Get(), SIOCSIFFLAGS, &request) != 0) Fail("Bringing up " + name);
}

}  // namespace

void Fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int ParseInteger(std::string_view text, int least, int most) {
  int value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value < least || value > most) {
    throw std::runtime_error("Not a number in range: " + std::string(text));
  }
  return value;
}

File OpenTun(const std::string& name, int mtu) {
  File tun(::open("/dev/net/tun", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!tun) Fail("/dev/net/tun");
  ifreq request = RequestFor(name);
  request.ifr_flags = IFF_TUN | IFF_NO_PI;  // bare IP packets, without a protocol header
  if (::ioctl(tun.Get(), TUNSETIFF, &request) != 0) Fail("Creating " + name);
  BringUp(name, mtu);
  return tun;
}

File OpenSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  // Blocked, because a signal that is delivered would never reach the file.
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  File file(::signalfd(-1, &signals, SFD_CLOEXEC));
  if (!file) Fail("Signals");
  return file;
}

}  // namespace tun
