#include "tests/system/platform/files/FileTree.h"

#include <QRegularExpression>
#include <QTest>

#include <dirent.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/magic.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <map>
#include <utility>

namespace {

/// A system call with its arguments.
using Call = seccomp_data;

/// Gives the result of a call that was asked for, or the negative errno.
using Answer = std::function<long(const Call &)>;

long make(const Call &call)
{
    const auto *a = call.args;
    const long result = ::syscall(call.nr, a[0], a[1], a[2], a[3], a[4], a[5]);
    return result < 0 ? -errno : result;
}

std::string nameIn(const Call &call)
{
    return reinterpret_cast<const char *>(call.args[1]);
}

/// Does the work in a thread of its own, whose calls that look at or change files are answered
/// here; what the work gives.
QString during(const Answer &answer, const std::function<QString()> &work)
{
    std::promise<int> listener;
    auto done = std::async(std::launch::async, [&] {
        std::vector<sock_filter> filter = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
        for (const int number :
             {SYS_getdents64, SYS_openat, SYS_mkdirat, SYS_linkat, SYS_renameat2, SYS_unlinkat,
              SYS_fsetxattr, SYS_copy_file_range, SYS_fstatfs, SYS_fsync, SYS_syncfs, SYS_sync}) {
            filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<__u32>(number), 0, 1));
            filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
        }
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
        const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
        ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        listener.set_value(static_cast<int>(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                                      SECCOMP_FILTER_FLAG_NEW_LISTENER, &program)));
        return work();
    });
    const platform::FileDescriptor calls(listener.get_future().get());
    pollfd event = {calls.get(), POLLIN, 0};
    // A hang-up tells that the thread has ended.
    while (calls.isOpen() && ::poll(&event, 1, -1) > 0 && (event.revents & POLLIN) != 0) {
        seccomp_notif asked = {};
        if (::ioctl(calls.get(), SECCOMP_IOCTL_NOTIF_RECV, &asked) == 0) {
            const long result = answer(asked.data);
            seccomp_notif_resp response = {asked.id, result, static_cast<int>(std::min(result, 0L)),
                                           0};
            ::ioctl(calls.get(), SECCOMP_IOCTL_NOTIF_SEND, &response);
        }
    }
    return done.get();
}

Answer failing(long number, int error, const std::string &name = {})
{
    return [=](const Call &call) {
        const bool isMeant = call.nr == number && (name.empty() || nameIn(call) == name);
        return isMeant ? -error : make(call);
    };
}

/// Makes the calls, and `change` after the first of that number in a folder with an item of that
/// name; of those that open the item, after the first that finds it closed.
Answer withChangeAfter(long number, const std::string &name, const std::function<void(int)> &change)
{
    return [=, isChanged = false](const Call &call) mutable {
        const long result = make(call);
        const int folder = static_cast<int>(call.args[number == SYS_renameat2 ? 2 : 0]);
        if (call.nr == number && !isChanged && (number != SYS_openat || result == -EACCES) &&
            ::faccessat(folder, name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
            isChanged = true;
            change(folder);
        }
        return result;
    };
}

/// Gives every entry of a listing the kind that `kindOf` gives for the true one.
Answer listingWith(const std::function<int(int)> &kindOf)
{
    return [kindOf](const Call &call) {
        const long length = make(call);
        char *const entries = reinterpret_cast<char *>(call.args[1]);
        for (long i = 0; call.nr == SYS_getdents64 && i < length;) {
            auto *const entry = reinterpret_cast<dirent64 *>(entries + i);
            entry->d_type = static_cast<unsigned char>(kindOf(entry->d_type));
            i += entry->d_reclen;
        }
        return length;
    };
}

/// Lists the last entries of every folder again at its end.
long listTwice(const Call &call)
{
    static std::map<std::uint64_t, std::string> listed;
    char *const entries = reinterpret_cast<char *>(call.args[1]);
    const long length = make(call);
    if (call.nr != SYS_getdents64) {
        return length;
    }
    const std::string last = std::exchange(
        listed[call.args[0]], std::string(entries, static_cast<std::size_t>(std::max(length, 0L))));
    if (length != 0) {
        return length;
    }
    std::ranges::copy(last, entries);
    listed.erase(call.args[0]);
    return static_cast<long>(last.size());
}

} // namespace

/// Copies and removals during which something fails, or something changes.
class FaultTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void flushes();
    void itemsThatCome();
    void namesOfOneFile();
    void refusedAttributes();
    void filesThatBecomeShorter();
    void otherListings();
    void itemsThatVanish();
    void itemsExchangedForLinks();
    void failedRemovals();
};

void FaultTest::initTestCase()
{
    const auto flush = [] { return QString::number(::fsync(-1) < 0 ? errno : 0); };
    if (during(failing(SYS_fsync, EIO), flush) != QString::number(EIO)) {
        QSKIP("system calls cannot be answered here");
    }
}

// A copy is flushed before it gets its name and there, and stays only when that was done.
void FaultTest::flushes()
{
    const ScratchFolder scratch;
    QVERIFY(scratch.run("mkdir -p tree/inner; echo file >tree/inner/file; ln -s tree link"));
    const QRegularExpression hidden("\\.tarnwell-[0-9a-f.]*");
    const std::map<int, QString> flushes = {
        {SYS_fsync, "fsync "}, {SYS_syncfs, "syncfs "}, {SYS_sync, "sync"}};
    const std::tuple<std::string, long, QStringList> copies[] = {
        {"tree/inner/file", 0, {"fsync hidden/item", "fsync copy", "fsync ."}},
        {"tree", 0, {"syncfs hidden", "fsync copy", "fsync ."}},
        {"link", 0, {"syncfs hidden", "fsync ."}},
        // A program does not hear of a flush of the disk.
        {"tree",
         FUSE_SUPER_MAGIC,
         {"fsync hidden/item/inner/file", "fsync hidden/item/inner", "fsync hidden/item",
          "fsync copy", "fsync .", "sync"}}};
    for (const auto &[source, diskType, calls] : copies) {
        for (qsizetype failingCall = 0; failingCall <= calls.size(); ++failingCall) {
            QStringList made;
            const auto answer = [&, type = diskType](const Call &call) -> long {
                if (call.nr == SYS_fstatfs && type != 0) {
                    reinterpret_cast<struct statfs *>(call.args[1])->f_type = type;
                    return 0;
                }
                if (!flushes.contains(call.nr)) {
                    return make(call);
                }
                made += flushes.at(call.nr);
                if (call.nr != SYS_sync) {
                    const auto path = std::filesystem::read_symlink("/proc/self/fd/" +
                                                                    std::to_string(call.args[0]));
                    made.last() += QString::fromStdString(path.lexically_relative(scratch.path()));
                }
                return made.size() == failingCall + 1 ? -EIO : 0;
            };
            const QString error =
                during(answer, [&, from = source] { return scratch.copy(from, "copy"); });
            const bool isDone = calls.value(failingCall, "sync") == "sync"; // which cannot fail
            QVERIFY(isDone ? error.isEmpty() : error.endsWith(": the disk reported an error."));
            QCOMPARE(scratch.names().contains("copy"), isDone);
            QCOMPARE(made.replaceInStrings(hidden, "hidden"), calls.mid(0, failingCall + 1));
            scratch.remove("copy");
        }
    }
}

// A disk may not be able to move an item only where nothing is.
void FaultTest::itemsThatCome()
{
    for (const int error : {0, EINVAL, ENOSYS}) {
        const ScratchFolder scratch;
        makePlainTree(scratch.path("tree"), 10);
        const Answer move = error == 0 ? make : failing(SYS_renameat2, error);
        const auto copy = [&] { return scratch.copy("tree", "copy"); };
        const auto comes = [&](const Call &call) {
            if (call.nr == SYS_renameat2) {
                makeFolder(scratch.path("copy"));
            }
            return move(call);
        };
        QVERIFY(during(comes, copy).endsWith(": an item with this name exists already."));
        QCOMPARE(scratch.names("copy"), QStringList());
        QCOMPARE(scratch.remove("copy"), "");
        QCOMPARE(during(move, copy), "");
        QCOMPARE(scratch.names(), QStringList({"copy", "tree"}));
    }
}

void FaultTest::namesOfOneFile()
{
    // How many names the disk allows a file: some, one, none, and none for a moment.
    const std::tuple<int, nlink_t, int> limits[] = {
        {EMLINK, 3, 1000}, {EMLINK, 1, 1000}, {EPERM, 0, 1000}, {EPERM, 0, 1}};
    for (auto [error, names, failures] : limits) {
        const ScratchFolder scratch;
        QVERIFY(scratch.run(
            "mkdir tree; cd tree; printf linked >0; for i in 1 2 3 4 5; do ln 0 $i; done"));
        const auto answer = [&, error = error, names = names,
                             left = failures](const Call &call) mutable {
            struct stat status = {};
            const bool isRefused =
                call.nr == SYS_linkat && left > 0 &&
                ::fstatat(static_cast<int>(call.args[0]), nameIn(call).c_str(), &status, 0) == 0 &&
                status.st_nlink >= names;
            left -= isRefused ? 1 : 0;
            return isRefused ? -error : make(call);
        };
        QCOMPARE(during(answer, [&] { return scratch.copy("tree", "copy"); }), "");
        QVERIFY(scratch.run("diff -r tree copy"));
        QVERIFY(failures > 1 || statusOf(scratch.path("copy/0")).st_nlink == 6);
    }
}

// A user's own are not lost in silence. The system's may need privileges.
void FaultTest::refusedAttributes()
{
    const ScratchFolder scratch;
    QVERIFY(scratch.run("touch file; setfattr -n user.note -v note file; setfacl -m u:1:r file"));
    const std::tuple<std::string, int, QString> refusals[] = {
        {"user.note", EACCES, "“file” could not be copied: permission was denied."},
        {"user.note", E2BIG, "“file” could not be copied: Argument list too long."},
        {"system.posix_acl_access", EPERM, ""}};
    for (const auto &[name, error, words] : refusals) {
        const auto copy = [&] { return scratch.copy("file", "copy"); };
        QCOMPARE(during(failing(SYS_fsetxattr, error, name), copy), words);
    }
}

void FaultTest::filesThatBecomeShorter()
{
    const ScratchFolder scratch;
    writeFile(scratch.path("file"), std::string(300'000, 'f'));
    const auto shorten = [&](const Call &call) -> long {
        if (call.nr != SYS_copy_file_range) {
            return make(call);
        }
        std::filesystem::resize_file(scratch.path("file"), 1000);
        return -EIO; // that the rest is read on tells that there is none
    };
    QCOMPARE(during(shorten, [&] { return scratch.copy("file", "copy"); }), "");
    QCOMPARE(std::filesystem::file_size(scratch.path("copy")), 1000U);
}

// The disk does not tell kinds, or they have changed by now, or others came into the folder
// meanwhile.
void FaultTest::otherListings()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    const Snapshot before = snapshot(scratch.path("tree"));
    const auto size = scratch.files().totalSize(scratch.path("tree"));
    const Answer listings[] = {
        listingWith([](int) { return DT_UNKNOWN; }), listTwice,
        listingWith([](int kind) { return kind == DT_DIR ? DT_REG : DT_DIR; }),
        listingWith([](int) { return DT_REG; })};
    for (const Answer &listing : listings) {
        std::uint64_t sizeOfListing = 0;
        const QString error = during(listing, [&] {
            sizeOfListing = scratch.files().totalSize(scratch.path("tree"));
            return scratch.copy("tree", "copy");
        });
        QCOMPARE(error, "");
        QCOMPARE(difference(before, snapshot(scratch.path("copy"))), "");
        QVERIFY(&listing != &listings[0] || sizeOfListing == size);
        QCOMPARE(during(listing, [&] { return scratch.remove("copy"); }), "");
        QVERIFY(!isThere(scratch.path("copy")));
    }
}

// An application at work removes a file now and then. Of a folder that is removed there is no copy.
void FaultTest::itemsThatVanish()
{
    const std::pair<std::string, QString> changes[] = {
        {"rm tree/1/60", ""},
        {"find tree -type f -delete", "“tree” could not be copied: it was removed meanwhile."},
        {"mv tree moved", "“tree” could not be copied: it was removed meanwhile."}};
    for (const auto &[change, words] : changes) {
        const ScratchFolder scratch;
        makePlainTree(scratch.path("tree"), 150);
        const Answer answer = withChangeAfter(SYS_getdents64, "60",
                                              [&, script = change](int) { scratch.run(script); });
        QCOMPARE(during(answer, [&] { return scratch.copy("tree", "copy"); }), words);
        QCOMPARE(isThere(scratch.path("copy")), words.isEmpty());
        QCOMPARE(scratch.names().size(), words.isEmpty() ? 2 : 1);
    }
}

// Between a look at an item and its use it becomes a link to a folder or a file elsewhere.
void FaultTest::itemsExchangedForLinks()
{
    // After which call, its name in the folder of that call, and what the link leads to.
    const std::tuple<long, std::string, std::string, bool> exchanges[] = {
        {SYS_getdents64, "inner", "outside", false},
        {SYS_getdents64, "file", "outside/secret", false},
        {SYS_mkdirat, "inner", "outside", false},
        {SYS_getdents64, "inner", "outside", true},
        {SYS_renameat2, "item", "outside", true},
        {SYS_openat, "tree", "outside", true}, // found closed
        {SYS_openat, "inner", "outside", true}};
    for (const auto &exchange : exchanges) {
        const ScratchFolder scratch;
        QVERIFY(isDoneByOrdinaryUser([&] {
            const auto &[number, name, target, isRemoval] = exchange;
            scratch.run(
                "mkdir -p outside/inner tree/inner; touch tree/file tree/inner/file\n"
                "echo secret | tee outside/secret >outside/inner/secret; chmod 750 outside");
            if (number == SYS_openat) {
                makeFolder(scratch.path(name == "tree" ? "tree" : "tree/inner"), 0);
            }
            const Snapshot outside = snapshot(scratch.path("outside"));
            bool isExchanged = false;
            const auto exchangeIn = [&, item = name.c_str(),
                                     to = scratch.path(target)](int folder) {
                isExchanged = ::renameat(folder, item, folder, "aside") == 0 &&
                              ::symlinkat(to.c_str(), folder, item) == 0;
            };
            during(withChangeAfter(number, name, exchangeIn), [&, isRemoval = isRemoval] {
                return isRemoval ? scratch.remove("tree") : scratch.copy("tree", "copy");
            });
            return isExchanged && scratch.run("! grep -rqs secret . --exclude-dir=outside") &&
                   difference(outside, snapshot(scratch.path("outside"))).isEmpty();
        }));
    }
}

// What is left of a folder comes back, with its mode. A full disk has no room to hide it in.
void FaultTest::failedRemovals()
{
    const ScratchFolder scratch;
    QVERIFY(scratch.run("mkdir tree; touch tree/file; chmod 500 tree"));
    const auto remove = [&] { return scratch.remove("tree"); };
    QCOMPARE(during(failing(SYS_unlinkat, EIO, "file"), remove),
             "“tree/file” could not be removed: the disk reported an error.");
    QCOMPARE(scratch.names("tree"), QStringList({"file"}));
    QCOMPARE(statusOf(scratch.path("tree")).st_mode & 0777U, 0500U);
    QCOMPARE(during(failing(SYS_mkdirat, ENOSPC), remove), "");
    QCOMPARE(scratch.names(), QStringList());
}

QTEST_GUILESS_MAIN(FaultTest)

#include "FaultTest.moc"
