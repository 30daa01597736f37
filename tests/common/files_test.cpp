// SPDX-License-Identifier: Apache-2.0
// Files that must not be lost, and sockets that must not be taken over.
#include "files/folder.h"
#include "files/listen.h"
#include "files/pipe.h"
#include "files/read.h"
#include "files/replace.h"
#include "files/unix_socket.h"
#include "files/users.h"
#include "files/write_all.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <set>
#include <string_view>
#include <system_error>
#include <thread>

namespace {

namespace fs = std::filesystem;

constexpr size_t kMost = 1 << 20;

std::span<const uint8_t> bytes_of(std::string_view text)
{
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

/// What went wrong; "" when nothing did.
std::string complaint_of(const std::function<void()>& call)
{
    try {
        call();
    } catch (const std::system_error& error) {
        return error.what();
    }
    return "";
}

std::string replace(const std::string& path, std::string_view text)
{
    const std::string before = complaint_of([&] { files::check_replaceable(path); });
    const std::string complaint = complaint_of([&] { files::replace_file(path, bytes_of(text)); });
    EXPECT_TRUE(before.empty() || before == complaint) << before;
    return complaint;
}

mode_t mode_of(const std::string& path)
{
    struct stat entry {};
    return stat(path.c_str(), &entry) == 0 ? entry.st_mode & 07777 : 0;
}

class Files : public testing::Test {
public:
    Files() { umask(0027); }
    ~Files() override
    {
        umask(umask_);
        fs::remove_all(folder_);
    }
    Files(const Files&) = delete;
    Files& operator=(const Files&) = delete;

protected:
    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    /// The names in a folder, in order.
    std::string names(const std::string& name = "") const
    {
        std::set<std::string> sorted;
        for (const fs::directory_entry& entry : fs::directory_iterator(path(name)))
            sorted.insert(entry.path().filename().string());
        std::string all;
        for (const std::string& each : sorted)
            all += (all.empty() ? "" : " ") + each;
        return all;
    }

private:
    static std::string make_folder()
    {
        std::string pattern = (fs::temp_directory_path() / "nyxus-files-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("mkdtemp");
        return pattern;
    }

    std::string folder_ = make_folder();
    mode_t umask_ = umask(0);
};

TEST_F(Files, ANewFileHasWhatTheUmaskLeaves)
{
    EXPECT_EQ(replace(path("new"), "contents"), "");
    EXPECT_EQ(files::read_text(path("new"), kMost), "contents");
    EXPECT_EQ(mode_of(path("new")), 0640U);
    const std::string longest = path(std::string(255, 'n'));
    EXPECT_EQ(replace(longest, ""), "");
    EXPECT_EQ(files::read_text(longest, kMost), "");
}

TEST_F(Files, AReplacedFileKeepsItsPermissionsAndItsOwner)
{
    const bool is_root = geteuid() == 0;
    for (const mode_t mode : {0600U, 0444U, 0666U, 0755U}) {
        ASSERT_EQ(replace(path("kept"), "old"), "");
        chmod(path("kept").c_str(), mode);
        ASSERT_TRUE(!is_root || chown(path("kept").c_str(), 4321, 1234) == 0);
        EXPECT_EQ(replace(path("kept"), "new"), "");
        EXPECT_EQ(files::read_text(path("kept"), kMost), "new");
        EXPECT_EQ(mode_of(path("kept")), mode);
        struct stat entry {};
        ASSERT_EQ(stat(path("kept").c_str(), &entry), 0);
        EXPECT_EQ(entry.st_uid, is_root ? 4321 : geteuid());
        EXPECT_EQ(entry.st_gid, is_root ? 1234 : getegid());
    }
    EXPECT_EQ(names(), "kept");
}

TEST_F(Files, LinksAreFollowedAndStay)
{
    fs::create_directories(path("far/away"));
    ASSERT_EQ(replace(path("far/away/file"), "old"), "");
    chmod(path("far/away/file").c_str(), 0600);
    fs::create_symlink("away/file", path("far/relative"));
    fs::create_symlink(path("far/relative"), path("absolute"));
    fs::create_symlink("away/made", path("far/dangling"));
    fs::create_directory_symlink("far", path("folder"));

    EXPECT_EQ(replace(path("absolute"), "new"), "");
    EXPECT_EQ(files::read_text(path("far/away/file"), kMost), "new");
    EXPECT_EQ(mode_of(path("far/away/file")), 0600U);
    EXPECT_EQ(replace(path("folder/dangling"), "made"), "");
    EXPECT_EQ(files::read_text(path("far/away/made"), kMost), "made");
    EXPECT_EQ(names(), "absolute far folder");
    EXPECT_EQ(names("far"), "away dangling relative");
    EXPECT_EQ(names("far/away"), "file made");
    EXPECT_TRUE(fs::is_symlink(path("absolute")) && fs::is_symlink(path("far/dangling")));
}

TEST_F(Files, WhatCannotBeReplacedStaysAsItIs)
{
    fs::create_directory(path("folder"));
    fs::create_symlink("loop", path("loop"));
    fs::create_symlink("nowhere/file", path("dangling"));
    ASSERT_EQ(replace(path("file"), "precious"), "");
    const std::string before = names();
    const std::pair<const char*, const char*> rows[] = {
        {"folder", "Is a directory"},
        {"loop", "Too many levels of symbolic links"},
        {"dangling", "No such file or directory"},
        {"missing/file", "No such file or directory"},
        {"file/below", "Not a directory"},
        {"new/", "No such file or directory"},
    };
    for (const auto& [name, reason] : rows) {
        const std::string target = path(name);
        const std::string complaint = "cannot write '" + target + "': " + reason;
        EXPECT_EQ(complaint_of([&] { files::check_replaceable(target); }), complaint);
        EXPECT_EQ(replace(target, "x"), complaint);
        EXPECT_EQ(names(), before);
    }
    EXPECT_EQ(replace("", "x"), "cannot write '': No such file or directory");
    EXPECT_EQ(replace("no\x1B[2Jfolder/x", "x"),
              "cannot write 'no?[2Jfolder/x': No such file or directory");
    EXPECT_EQ(files::read_text(path("file"), kMost), "precious");
}

/// What a process of its own says, which may change what it may do.
bool is_true_in_child(const std::function<bool()>& question)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(question() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST_F(Files, AFolderThatTakesNoFileKeepsItsOwn)
{
    fs::create_directory(path("protected"));
    fs::create_symlink("protected/file", path("link"));
    ASSERT_EQ(replace(path("link"), "precious"), "");
    chmod(path("protected/file").c_str(), 0666);
    chmod(path("protected").c_str(), 0555);
    chmod(path("").c_str(), 0755);
    EXPECT_TRUE(is_true_in_child([&] {
        constexpr uid_t kNobody = 65534;
        return (geteuid() != 0 || setuid(kNobody) == 0) && // root writes everywhere
               replace(path("link"), "x") ==
                   "cannot write '" + path("link") + "': Permission denied";
    }));
    EXPECT_EQ(files::read_text(path("link"), kMost), "precious");
    EXPECT_EQ(names("protected"), "file");
    chmod(path("protected").c_str(), 0755);
}

TEST_F(Files, AFullDiskChangesNothing)
{
    fs::create_symlink("file", path("link"));
    ASSERT_EQ(replace(path("link"), "precious"), "");
    EXPECT_TRUE(is_true_in_child([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        setrlimit(RLIMIT_FSIZE, &limit);
        return replace(path("link"), std::string(5000, 'x')) ==
               "cannot write '" + path("link") + "': File too large";
    }));
    EXPECT_EQ(files::read_text(path("file"), kMost), "precious");
    EXPECT_EQ(names(), "file link");
    EXPECT_EQ(replace("/dev/full", "x"), "cannot write '/dev/full': No space left on device");
}

/// From now on this process has a file system without nameless files.
bool refuse_nameless_files()
{
    constexpr uint32_t kFlags = offsetof(seccomp_data, args) + 2 * sizeof(uint64_t);
    constexpr uint32_t kNameless = O_TMPFILE & ~O_DIRECTORY;
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFlags),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kNameless, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0 &&
           open("/tmp", O_TMPFILE | O_WRONLY, 0600) < 0 && errno == EOPNOTSUPP;
}

TEST_F(Files, AreWholeAlsoWhereEachNeedsAName)
{
    ASSERT_EQ(replace(path("file"), "old"), "");
    const std::string long_name(255, 'n');
    EXPECT_TRUE(is_true_in_child([&] {
        const files::Folder folder = *files::Folder::find(path(""));
        return refuse_nameless_files() && replace(path("file"), "new").empty() &&
               replace(path(long_name), "").empty() &&
               complaint_of([&] { folder.put("kept", std::string_view("whole")); }).empty();
    }));
    EXPECT_EQ(files::read_text(path("file"), kMost), "new");
    EXPECT_EQ(files::read_text(path("kept"), kMost), "whole");
    EXPECT_EQ(names(), "file kept " + long_name);
}

/// False: it has died of its signal.
bool write_beyond_the_limit(const std::string& file)
{
    const rlimit limit{1000, 1000};
    const rlimit no_core{0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    setrlimit(RLIMIT_FSIZE, &limit); // SIGXFSZ
    replace(file, std::string(5000, 'x'));
    return true;
}

TEST_F(Files, AKilledProcessLeavesNoDraft)
{
    ASSERT_EQ(replace(path("file"), "precious"), "");
    EXPECT_FALSE(is_true_in_child([&] { return write_beyond_the_limit(path("file")); }));
    EXPECT_EQ(files::read_text(path("file"), kMost), "precious");
    EXPECT_EQ(names(), "file");
}

TEST_F(Files, TheNextWriterRemovesADraftThatHadToHaveAName)
{
    ASSERT_EQ(replace(path("file"), "precious"), "");
    EXPECT_FALSE(is_true_in_child(
        [&] { return refuse_nameless_files() && write_beyond_the_limit(path("file")); }));
    EXPECT_EQ(files::read_text(path("file"), kMost), "precious");
    EXPECT_EQ(names(), ".file.nyxus-new file");

    const files::Descriptor writer(open(path(".file.nyxus-new").c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(writer.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_TRUE(is_true_in_child(
        [&] { return refuse_nameless_files() && replace(path("file"), "new").empty(); }));
    EXPECT_EQ(names(), ".file.nyxus-new file") << "its writer lives";

    ASSERT_EQ(flock(writer.get(), LOCK_UN), 0);
    ASSERT_EQ(replace(path("file"), "newer"), "");
    EXPECT_EQ(files::read_text(path("file"), kMost), "newer");
    EXPECT_EQ(names(), "file");
}

/// "common_test (process 123)"
std::string called(pid_t process)
{
    std::string name = files::read_text("/proc/self/comm", kMost); // with the end of the line
    name.back() = ' ';
    return name + "(process " + std::to_string(process) + ")";
}

TEST_F(Files, WhoHasOneOpenOrLockedIsNamedAfterALimit)
{
    const files::Folder folder = *files::Folder::find(path(""));
    EXPECT_TRUE(files::users_of(path("")).empty()) << "this one does not count";
    files::Pipe ready = files::make_pipe();
    const pid_t holder = fork();
    if (holder == 0) {
        const files::Descriptor lock = folder.lock();
        (void)!write(ready.write_end.get(), "y", 1);
        for (;;)
            pause();
    }
    char byte = 0;
    ASSERT_EQ(read(ready.read_end.get(), &byte, 1), 1);
    EXPECT_EQ(files::users_of(path("")), std::vector{called(holder)});
    EXPECT_EQ(complaint_of([&] { (void)folder.lock(); }),
              called(holder) + " has locked '" + path("") +
                  "' for 5 s: Resource temporarily unavailable");
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(complaint_of([&] { (void)folder.lock(); }), "");
    EXPECT_TRUE(files::users_of(path("none")).empty());
}

TEST_F(Files, WhatIsNoPlainFileIsWrittenToWhereItIs)
{
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    fs::create_symlink("fifo", path("link"));
    const std::string large(1 << 18, 'x'); // more than it holds
    std::string got;
    std::thread reader([&] { got = files::read_text(path("fifo"), kMost); });
    EXPECT_EQ(replace(path("link"), large), "");
    reader.join();
    EXPECT_EQ(got, large);
    EXPECT_TRUE(fs::is_fifo(path("fifo")));
    EXPECT_EQ(names(), "fifo link");

    const files::Pipe pipe = files::make_pipe();
    const std::string name = "/proc/self/fd/" + std::to_string(pipe.write_end.get());
    EXPECT_EQ(replace(name, "x"), "");
    char byte = 0;
    EXPECT_EQ(read(pipe.read_end.get(), &byte, 1), 1);
}

TEST_F(Files, ReadingIsBounded)
{
    const auto error_of = [](const std::string& path, size_t most) -> std::string {
        try {
            (void)files::read_file(path, most);
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "";
    };
    ASSERT_EQ(replace(path("file"), std::string(200'000, 'x')), "");
    EXPECT_EQ(files::read_file(path("file"), 200'000).size(), 200'000U);
    EXPECT_EQ(error_of(path("file"), 199'999),
              "cannot read '" + path("file") + "': File too large");
    EXPECT_EQ(error_of("/dev/zero", 10), "cannot read '/dev/zero': File too large");
    EXPECT_EQ(error_of(path("none"), 10),
              "cannot read '" + path("none") + "': No such file or directory");
    EXPECT_EQ(error_of(path("."), 10), "cannot read '" + path(".") + "': Is a directory");
}

void do_nothing(int) {}

TEST(WriteAll, GoesOnAfterInterruptsAndWithoutRoom)
{
    struct sigaction action {};
    action.sa_handler = do_nothing; // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    const std::string large(1 << 20, 'x');
    for (const int flags : {0, O_NONBLOCK}) {
        files::Pipe pipe = files::make_pipe(flags);
        int error = -1;
        std::thread writer([&] {
            error = files::write_all(pipe.write_end.get(), large);
            pipe.write_end.reset();
        });
        size_t received = 0;
        char buffer[1000];
        for (ssize_t got = -1; got != 0;) {
            pthread_kill(writer.native_handle(), SIGUSR1);
            got = read(pipe.read_end.get(), buffer, sizeof buffer);
            received += got > 0 ? static_cast<size_t>(got) : 0;
        }
        writer.join();
        EXPECT_EQ(error, 0);
        EXPECT_EQ(received, large.size());
    }
}

TEST(WriteAll, TellsWhy)
{
    std::signal(SIGPIPE, SIG_IGN);
    files::Pipe pipe = files::make_pipe();
    pipe.read_end.reset();
    EXPECT_EQ(files::write_all(pipe.write_end.get(), "x"), EPIPE);
    EXPECT_EQ(files::write_all(-1, "x"), EBADF);
    EXPECT_EQ(files::write_all(-1, ""), 0);

    const files::Pipe full = files::make_pipe();
    EXPECT_EQ(files::write_before_end(full.write_end.get(), std::string(1 << 20, 'x')), EAGAIN);
}

TEST(Descriptor, IsClosedOnce)
{
    files::Descriptor first(open("/dev/null", O_RDONLY | O_CLOEXEC));
    const int fd = first.get();
    files::Descriptor second = std::move(first);
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): that it is empty is its promise
    EXPECT_EQ(second.get(), fd);
    errno = ENOENT;
    second = files::Descriptor();
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST_F(Files, OnlyADeadSocketGivesItsNameUp)
{
    const std::string place = path("socket");
    EXPECT_TRUE(files::listen_at(place)); // closed at once; its name stays
    files::Descriptor listener = files::listen_at(place);
    ASSERT_TRUE(listener);
    EXPECT_EQ(mode_of(place), 0600U);
    EXPECT_TRUE(files::connect_to(place));
    EXPECT_FALSE(files::listen_at(place));
    EXPECT_EQ(errno, EADDRINUSE);

    ASSERT_EQ(replace(path("file"), "precious"), "");
    EXPECT_FALSE(files::listen_at(path("file")));
    EXPECT_EQ(errno, EADDRINUSE);
    EXPECT_EQ(files::read_text(path("file"), kMost), "precious");

    const std::string room(sizeof(sockaddr_un::sun_path) - path("").size(), 's');
    EXPECT_TRUE(files::listen_at(path(room.substr(1))));
    EXPECT_FALSE(files::listen_at(path(room)));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_FALSE(files::connect_to(path(room)));
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_FALSE(files::connect_to(path("none")));
    EXPECT_EQ(errno, ENOENT);
}

} // namespace
