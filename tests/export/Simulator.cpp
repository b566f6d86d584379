// Running simavr and avr-gdb against it; the simulator always stops with the object that started it.
#include "Simulator.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace ubrof::test {
namespace {

constexpr uint16_t kGdbPort = 1234;

bool portOpen(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool open = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return open;
}

} // namespace

bool simulatorFaulted(const ToolResult& run)
{
    const std::string said = run.out + run.err;
    for (const char* sign : {"CORE: ***", "avr_sadly_crashed", "Invalid", "avr_gdb_init", "not known"})
        if (said.find(sign) != std::string::npos)
            return true;
    return false;
}

ToolResult simulateForASecond(const std::string& elf)
{
    return runTool({"simavr", "-v", "-v", elf}, 1.0);
}

ToolResult debugInSimulator(const std::string& elf, const std::vector<std::string>& commands)
{
    EXPECT_FALSE(portOpen(kGdbPort)) << "something else holds port " << kGdbPort;
    BackgroundTool simavr({"simavr", "-g", elf});
    std::vector<std::string> argv = {"avr-gdb", "-batch", "-nx", "-ex", "target remote 127.0.0.1:" + std::to_string(kGdbPort)};
    for (const std::string& command : commands) {
        argv.push_back("-ex");
        argv.push_back(command);
    }
    argv.push_back(elf);
    // Probing the port would take the simulator's one gdb connection (and let it run on when closed),
    // so wait for it to listen by retrying gdb's own connection while it is refused.
    ToolResult session;
    for (int attempt = 0; attempt < 50; ++attempt) {
        session = runTool(argv, 60);
        if ((session.out + session.err).find("Connection refused") == std::string::npos || !simavr.running())
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return session;
}

} // namespace ubrof::test
