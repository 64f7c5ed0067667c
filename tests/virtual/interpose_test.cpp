/**
 * Calls that libvap takes from libc: the device's own paths, packets, processes
 * and shell commands, and nothing else.
 */
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "platform/systool.h"
#include "tests/support/support.h"
#include "virtual/device/machine.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Interpose : public test::Device {
  protected:
    /** Standard output of a command that the agent opens as a pipe. */
    static std::string piped(const std::string &command) {
        FILE *const pipe = popen(command.c_str(), "re");
        std::string text;
        char block[256];
        for (size_t got = 0; (got = fread(block, 1, sizeof block, pipe)) > 0;) {
            text.append(block, got);
        }
        pclose(pipe);
        return text;
    }

    /** A file of the machine itself. */
    std::string machine_file(const char *name) const { return (folder() / name).string(); }
};

TEST_F(Interpose, DevicePathsLeadIntoTheFolder) {
    for (const char *path :
         {"/etc/lldpd.conf", "/etc/lldpd.write", "/etc/lan.ini", "/etc/nxapi.conf",
          "/etc/nxapi/ca.pem", "/tmp/image", "/tmp/wirestation", "/tmp/file_topo",
          "/tmp/config.export", "/var/network_check_result.cfg", "/proc/wlan0/ch_util"}) {
        SCOPED_TRACE(path);
        FILE *const out = fopen(path, "we");
        ASSERT_NE(out, nullptr);
        fputs("x", out);
        fclose(out);
        EXPECT_EQ(read_file(path), "x");
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        char byte = 0;
        EXPECT_EQ(read(fd, &byte, 1), 1);
        close(fd);
        EXPECT_EQ(unlink(path), 0);
        EXPECT_EQ(open(path, O_RDONLY | O_CLOEXEC), -1);
        EXPECT_EQ(errno, ENOENT);
        EXPECT_THAT(effects(), ElementsAre("fopen " + std::string(path) + " we",
                                           "unlink " + std::string(path)));
    }
}

TEST_F(Interpose, OtherPathsPassThrough) {
    for (const char *path : {"/etc/lldpd.conf.d", "/etc/nxapi/sub/ca.pem", "/etc/nxapi/..",
                             "/tmp/image2", "/proc/a/b/ch_util", "/proc/self/status"}) {
        EXPECT_FALSE(vap::is_device_path(path)) << path;
    }
    const std::string own = machine_file("own");
    const int fd = open(own.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
    ASSERT_GE(fd, 0);
    close(fd);
    EXPECT_TRUE(std::filesystem::exists(own));
    EXPECT_EQ(std::filesystem::status(own).permissions(), std::filesystem::perms(0640));
    EXPECT_EQ(unlink(own.c_str()), 0);
    EXPECT_THAT(effects(), IsEmpty());
}

TEST_F(Interpose, OnlyWhatMakesOrEmptiesAFileIsAnEffect) {
    write_file("/tmp/image", "content");
    close(open("/tmp/image", O_RDWR | O_CREAT | O_CLOEXEC, 0777));
    fclose(fopen("/tmp/image", "r+e"));
    EXPECT_THAT(effects(), IsEmpty());
    close(open("/tmp/image", O_RDWR | O_TRUNC | O_CLOEXEC));
    EXPECT_EQ(read_file("/tmp/image"), "");
    EXPECT_THAT(effects(), testing::SizeIs(1));
}

TEST_F(Interpose, LocalSocketsLiveInAFolderOfAnyLength) {
    const std::filesystem::path deep = folder() / std::string(200, 'd');
    std::filesystem::create_directory(deep);
    vap::create_device(deep / "ap", {});
    vap::open_device(deep / "ap", {.time = vap::Time::manual, .restarts_process = false});
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/var/norvex_socket");
    const auto *any = reinterpret_cast<const sockaddr *>(&address);
    const auto length = static_cast<socklen_t>(strlen(address.sun_path) + 2);
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(unlink(address.sun_path), -1);
    ASSERT_EQ(bind(server, any, length), 0);
    ASSERT_EQ(listen(server, 1), 0);
    EXPECT_TRUE(std::filesystem::is_socket(vap::folder() / "root/var/norvex_socket"));
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(connect(client, any, length), 0);
    const int accepted = accept(server, nullptr, nullptr);
    EXPECT_EQ(write(client, "hi", 2), 2);
    char text[3] = {};
    EXPECT_EQ(read(accepted, text, 2), 2);
    EXPECT_STREQ(text, "hi");
    for (const int fd : {server, client, accepted}) {
        close(fd);
    }
    EXPECT_EQ(unlink(address.sun_path), 0);
}

TEST_F(Interpose, PacketsForOtherMachinesStayHere) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(514);
    inet_pton(AF_INET, "192.0.2.53", &address.sin_addr);
    const auto *any = reinterpret_cast<const sockaddr *>(&address);
    EXPECT_EQ(sendto(fd, "\x12\x34\0z", 4, 0, any, sizeof address), 4);
    EXPECT_THAT(effects(), ElementsAre("sendto 1234007a 192.0.2.53 514"));

    const int receiver = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    inet_pton(AF_INET, "127.0.0.1", &address.sin_addr);
    address.sin_port = 0;
    ASSERT_EQ(bind(receiver, any, sizeof address), 0);
    socklen_t length = sizeof address;
    getsockname(receiver, reinterpret_cast<sockaddr *>(&address), &length);
    EXPECT_EQ(sendto(fd, "loop", 4, 0, any, sizeof address), 4);
    char text[5] = {};
    EXPECT_EQ(recv(receiver, text, 4, 0), 4);
    EXPECT_STREQ(text, "loop");
    EXPECT_THAT(effects(), IsEmpty());
    close(fd);
    close(receiver);
}

TEST_F(Interpose, SignalsReachNoProcessOfTheMachineButOwnOnes) {
    // Signal 0 first: it does no harm where the call is not caught.
    ASSERT_EQ(kill(-1, 0), -1);
    ASSERT_EQ(kill(0, 0), -1);
    ASSERT_EQ(kill(1, 0), 0);
    ASSERT_THAT(effects(), ElementsAre("kill -1 0", "kill 0 0", "kill 1 0"));
    EXPECT_EQ(kill(1, SIGTERM), 0);
    EXPECT_EQ(kill(getpid(), 0), 0);
    EXPECT_THAT(effects(), ElementsAre("kill 1 15"));
    EXPECT_EQ(vap::machine()->restart, 1);
}

TEST_F(Interpose, PlannedFaultsLookLikeLibc) {
    for (const char *op : {"open", "fopen", "socket", "popen", "unlink"}) {
        vap::fail(op);
    }
    vap::fail("bind", 1, 1, EADDRINUSE);
    std::ofstream(machine_file("test")) << "the test's own files are not counted";
    EXPECT_EQ(fopen("/etc/lan.ini", "r"), nullptr);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(open("/tmp/image", O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), -1);
    EXPECT_EQ(popen("ping 192.0.2.1", "r"), nullptr);
    EXPECT_EQ(unlink("/tmp/image"), -1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address{};
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    close(fd);
}

TEST_F(Interpose, CounterFileAnswersThePortWrittenToIt) {
    const auto read_counters = [] {
        FILE *const in = fopen("/proc/rtl865x/asicCounter", "re");
        std::string text(4096, '\0');
        text.resize(fread(text.data(), 1, text.size(), in));
        fclose(in);
        return text;
    };
    const auto select = [](const char *port) {
        const int fd = open("/proc/rtl865x/asicCounter", O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
        EXPECT_EQ(write(fd, port, 7), 7);
        close(fd);
    };
    select("port 1");
    EXPECT_EQ(read_counters(), vap::asic_counter_text(1));
    EXPECT_THAT(read_counters(), HasSubstr("ifInOctets"));
    FILE *const out = fopen("/proc/rtl865x/asicCounter", "we");
    EXPECT_EQ(fwrite("port 3", 1, 7, out), 7u);
    fclose(out);
    EXPECT_EQ(read_counters(), vap::asic_counter_text(3));
    select("port 9");
    EXPECT_EQ(read_counters(), "") << "no such port";
    EXPECT_THAT(effects(), IsEmpty());
}

struct Command {
    const char *text;
    bool runs;
    const char *why;
};

TEST_F(Interpose, RunsOnlyWhatStaysInTheFolder) {
    const Command rows[] = {
        {"sed -i '3c project_id=7' /etc/lldpd.conf", true, "the agent's own"},
        {"sed -i /etc/d /etc/lldpd.conf", true, "a text that looks like a path"},
        {"rm -rf /var/network_check_result.cfg", true, "the agent's own"},
        {"cat /proc/wlan0/ch_util | grep -w 'Channel:6' | awk '{print $4}' | awk -F : '{print $2}'",
         true, "the agent's own"},
        {"ping 192.0.2.1 -4 -c 1 -s 32 -W 3 2>&1", true, "the folder's own ping"},
        {"iwconfig wlan0 | grep \"Bit Rate\"", true, "the folder's own iwconfig"},
        {"wget -T 240 http://127.0.0.1:1/x -O /tmp/image", true, "loopback"},
        {"wget -T 240 127.0.0.1:1/x -O /tmp/image", true, "loopback without a scheme"},
        {"insmod /lib/modules/network_topology.ko", false, "no tool of ours"},
        {"killall lldpd", false, "no tool of ours"},
        {"echo 3 > /proc/sys/vm/drop_caches;free", false, "the machine's kernel"},
        {"cat /etc/passwd", false, "the machine's file"},
        {"awk '{print $1}' /etc/passwd", false, "the machine's file"},
        {"cat ../../secret", false, "out of the folder"},
        {"cat < /etc/passwd", false, "redirection"},
        {"cat /etc/lan.ini > /etc/passwd", false, "redirection"},
        {"rm -rf /", false, "the machine"},
        {"cat /etc/lan.ini; reboot", false, "one part is not harmless"},
        {"cat $(reboot)", false, "substitution"},
        {"cat `reboot`", false, "substitution"},
        {"sed -i s/a/b/ \"$HOME\"", false, "a variable inside quotes"},
        {"awk '{system(\"reboot\")}' /etc/lan.ini", false, "a program that runs others"},
        {"grep -f/etc/shadow x", false, "a file in an option"},
        {"cat 'unclosed", false, "no command"},
        {"", false, "no command"},
    };
    for (const Command &row : rows) {
        EXPECT_EQ(vap::shell_command(row.text).has_value(), row.runs)
            << row.text << ": " << row.why;
    }
    EXPECT_THAT(*vap::shell_command("wget 127.0.0.1:1/x"),
                HasSubstr("wget --no-proxy --max-redirect=0 "))
        << "no way leads on from there";
    for (const char *url :
         {"http://192.0.2.1/x", "http://127.0.0.1:80@192.0.2.1/x", "http://127.0.0.1.example/x",
          "192.0.2.1/x", "host.example:80/x", "image.bin"}) {
        EXPECT_EQ(vap::shell_command(std::string("wget ") + url + " -O /tmp/image"), "exit 4")
            << "as if the network were down: " << url;
    }
}

TEST_F(Interpose, CommandsWorkOnTheDevicesFiles) {
    write_file("/etc/lldpd.conf", "one\ntwo\nthree\n");
    EXPECT_EQ(doSystemCmd("sed -i '%dc project_id=%s' %s", 2, "7", "/etc/lldpd.conf"), 0);
    EXPECT_EQ(read_file("/etc/lldpd.conf"), "one\nproject_id=7\nthree\n");
    EXPECT_NE(doSystemCmd("sed -i 's/.*/id/e' /etc/lldpd.conf"), 0) << "its script runs nothing";
    EXPECT_EQ(doSystemCmd("rm -rf /etc/lldpd.conf"), 0);
    EXPECT_FALSE(std::filesystem::exists(vap::host_path("/etc/lldpd.conf")));
    EXPECT_EQ(doSystemCmd("killall lldpd"), 0) << "only journalled";
    EXPECT_EQ(piped("free"), "");
    EXPECT_EQ(doSystemCmd("%s", std::string(SYSTOOL_COMMAND_MAX, 'a').c_str()), -1);
    EXPECT_EQ(WEXITSTATUS(doSystemCmd("wget http://192.0.2.1/x -O /tmp/image")), 4);
    EXPECT_THAT(effects({"doSystemCmd"})[0],
                "doSystemCmd sed -i '2c project_id=7' /etc/lldpd.conf");
}

TEST_F(Interpose, FolderProgramsComeFirst) {
    const std::filesystem::path ping = vap::folder() / "bin/ping";
    std::filesystem::remove(ping);
    std::ofstream(ping) << "#!/bin/sh\necho \"$0 $*\"\n";
    std::filesystem::permissions(ping, std::filesystem::perms(0755));
    EXPECT_EQ(piped("ping 192.0.2.1 -4 -c 1 -s 32 -W 3 2>&1"),
              ping.string() + " 192.0.2.1 -4 -c 1 -s 32 -W 3\n");
    EXPECT_THAT(effects(), ElementsAre("popen ping 192.0.2.1 -4 -c 1 -s 32 -W 3 2>&1 re"));
}

}  // namespace
