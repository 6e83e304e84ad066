// The local port search from 7001 to 7099. This program runs alone: it
// holds the whole port range while it runs.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "bind_spy.h"
#include "loopback.h"
#include "rmcpp.h"
#include "trace_capture.h"

namespace {

int hold_port(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(port);
    a.sin_addr.s_addr = htonl(INADDR_ANY);
    if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

uint16_t local_port(int fd)
{
    sockaddr_in a{};
    socklen_t n = sizeof a;
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &n);
    return ntohs(a.sin_port);
}

TEST(PortSearch, TakesTheFirstFreePortFrom7001)
{
    int fd = -1;
    ASSERT_EQ(init_socket(&fd, testkit::loopback(12), 623, 0), 0);
    EXPECT_EQ(local_port(fd), 7001);
    int next = -1;
    ASSERT_EQ(init_socket(&next, testkit::loopback(12), 623, 0), 0);
    EXPECT_EQ(local_port(next), 7002);
    close(fd);
    close(next);
}

TEST(PortSearch, SkipsTakenPorts)
{
    std::vector<int> held;
    for (uint16_t p = 7001; p <= 7003; ++p) held.push_back(hold_port(p));
    int fd = -1;
    ASSERT_EQ(init_socket(&fd, testkit::loopback(12), 623, 0), 0);
    EXPECT_EQ(local_port(fd), 7004);
    close(fd);
    for (int h : held) close(h);
}

TEST(PortSearch, LastPortTriedIs7099)
{
    std::vector<int> held;
    for (uint16_t p = 7001; p <= 7098; ++p) {
        held.push_back(hold_port(p));
        ASSERT_GE(held.back(), 0) << p;
    }
    int fd = -1;
    ASSERT_EQ(init_socket(&fd, testkit::loopback(12), 623, 0), 0);
    EXPECT_EQ(local_port(fd), 7099);
    close(fd);
    for (int h : held) close(h);
}

TEST(PortSearch, AllTakenFailsWith40AndClosesTheSocket)
{
    testkit::clear_trace();
    std::vector<int> held;
    for (uint16_t p = 7001; p <= 7099; ++p) {
        held.push_back(hold_port(p));
        ASSERT_GE(held.back(), 0) << p;
    }
    const int free_port_7100 = hold_port(7100);  // beyond the range: never tried
    int fd = -1;
    bind_calls().clear();
    EXPECT_EQ(init_socket(&fd, testkit::loopback(12), 623, 0), 40);
    ASSERT_EQ(bind_calls().size(), 99u);
    EXPECT_EQ(ntohs(bind_calls().front().sin_port), 7001);
    EXPECT_EQ(ntohs(bind_calls().back().sin_port), 7099);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(testkit::log_lines(), std::vector<std::string>{"Failed to bind the socket\n"});
    for (int h : held) close(h);
    if (free_port_7100 >= 0) close(free_port_7100);
}

}  // namespace
