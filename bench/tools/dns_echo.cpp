// The ceiling for the DNS benchmark: a responder that does nothing but turn
// each query into a reply (the query itself with the QR bit set) and send it
// back, read and written in batches (recvmmsg/sendmmsg). No logging.
//
//   korvane_dns_echo PORT [ADDRESS]     (ADDRESS default 127.0.0.1)
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int kBatch = 32;
constexpr std::size_t kDatagramMax = 4096;

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s PORT [ADDRESS]\n", argv[0]);
    return 2;
  }
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[1])));
  if (inet_pton(AF_INET, argc > 2 ? argv[2] : "127.0.0.1", &local.sin_addr) != 1) {
    std::fprintf(stderr, "bad address\n");
    return 2;
  }
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof local) != 0) {
    std::perror("bind");
    return 1;
  }
  std::vector<char> buffers(kBatch * kDatagramMax);
  std::vector<mmsghdr> messages(kBatch);
  std::vector<iovec> vectors(kBatch);
  std::vector<sockaddr_in> peers(kBatch);
  for (;;) {
    for (int i = 0; i < kBatch; ++i) {
      vectors[i] = iovec{buffers.data() + i * kDatagramMax, kDatagramMax};
      messages[i].msg_hdr = msghdr{};
      messages[i].msg_hdr.msg_name = &peers[i];
      messages[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
      messages[i].msg_hdr.msg_iov = &vectors[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    const int count = recvmmsg(fd, messages.data(), kBatch, MSG_WAITFORONE, nullptr);
    if (count < 0) {
      if (errno == EINTR) continue;
      std::perror("recvmmsg");
      return 1;
    }
    for (int i = 0; i < count; ++i) {
      vectors[i].iov_len = messages[i].msg_len;
      if (messages[i].msg_len >= 3) buffers[i * kDatagramMax + 2] |= static_cast<char>(0x80);
    }
    for (int sent = 0; sent < count;) {
      const int n = sendmmsg(fd, messages.data() + sent, static_cast<unsigned>(count - sent), 0);
      sent += n > 0 ? n : 1;  // a refused reply is dropped, as the network would
    }
  }
}
