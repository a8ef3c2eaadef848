#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

namespace {

/// A system call on an open item, or on an item by its name in an open folder.
struct Call
{
    std::string function;
    int item = -1;
    std::string name;
};

using Hook = std::function<int(const Call &)>;

Hook s_before; ///< the errno that it gives, unless 0, is that of the call, which is not made
Hook s_after;
bool s_isInHook = false; ///< whose own calls are told to nobody

int tell(const Hook &hook, const Call &call)
{
    if (!hook || std::exchange(s_isInHook, true)) {
        return 0;
    }
    const int error = hook(call);
    s_isInHook = false;
    return error;
}

/// Makes the call with the C library's function.
template <typename Function, typename... Arguments>
auto make(const Call &call, Function *, Arguments... arguments)
{
    const auto original = reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, call.function.c_str()));
    if (const int error = tell(s_before, call); error != 0) {
        errno = error;
        return decltype(original(arguments...))(-1);
    }
    const auto result = original(arguments...);
    const int error = errno;
    tell(s_after, call);
    errno = error;
    return result;
}

/// How a listing differs from what is there: the disk does not tell kinds, or they have changed by
/// now, or others came into the folder meanwhile.
enum class Listing
{
    True,
    Unknown,
    Changed,
    Files,
    Twice
};

Listing s_listing = Listing::True;
long s_diskType = 0; ///< what statfs(2) is to tell; 0 for the truth

} // namespace

// These take the place of the C library's.

ssize_t getdents64(int folder, void *buffer, size_t size) noexcept
{
    static std::map<int, std::string> listed;
    ssize_t length = make({"getdents64", folder, ""}, &getdents64, folder, buffer, size);
    char *const bytes = static_cast<char *>(buffer);
    if (s_listing == Listing::Twice && length > 0) {
        listed[folder].assign(bytes, size_t(length));
    } else if (s_listing == Listing::Twice && length == 0) {
        const std::string again = std::exchange(listed[folder], {});
        std::ranges::copy(again, bytes);
        length = ssize_t(again.size());
    }
    for (ssize_t i = 0; i < length;) {
        auto *const entry = reinterpret_cast<dirent64 *>(bytes + i);
        if (s_listing == Listing::Unknown) {
            entry->d_type = DT_UNKNOWN;
        } else if (s_listing == Listing::Changed) {
            entry->d_type = entry->d_type == DT_DIR ? DT_REG : DT_DIR;
        } else if (s_listing == Listing::Files) {
            entry->d_type = DT_REG;
        }
        i += entry->d_reclen;
    }
    return length;
}

int mkdirat(int folder, const char *name, mode_t mode) noexcept
{
    return make({"mkdirat", folder, name}, &mkdirat, folder, name, mode);
}

int fchmodat(int folder, const char *name, mode_t mode, int flags) noexcept
{
    return make({"fchmodat", folder, name}, &fchmodat, folder, name, mode, flags);
}

int linkat(int folder, const char *name, int newFolder, const char *newName, int flags) noexcept
{
    return make({"linkat", folder, name}, &linkat, folder, name, newFolder, newName, flags);
}

int renameat2(int folder, const char *name, int newFolder, const char *newName,
              unsigned int flags) noexcept
{
    return make({"renameat2", newFolder, newName}, &renameat2, folder, name, newFolder, newName,
                flags);
}

int unlinkat(int folder, const char *name, int flags) noexcept
{
    return make({"unlinkat", folder, name}, &unlinkat, folder, name, flags);
}

int fsetxattr(int item, const char *name, const void *value, size_t size, int flags) noexcept
{
    return make({"fsetxattr", item, name}, &fsetxattr, item, name, value, size, flags);
}

ssize_t copy_file_range(int source, off64_t *from, int copy, off64_t *to, size_t size,
                        unsigned int flags)
{
    return make({"copy_file_range", source, ""}, &copy_file_range, source, from, copy, to, size,
                flags);
}

int fsync(int item)
{
    return make({"fsync", item, ""}, &fsync, item);
}

int syncfs(int item) noexcept
{
    return make({"syncfs", item, ""}, &syncfs, item);
}

void sync() noexcept
{
    tell(s_before, {"sync", -1, ""});
}

int fstatfs(int item, struct statfs *disk) noexcept
{
    const int result = make({"fstatfs", item, ""}, &fstatfs, item, disk);
    disk->f_type = s_diskType != 0 ? s_diskType : disk->f_type;
    return result;
}

/// Copies and removals during which something fails, or something changes.
class FaultTest : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void flushes();
    void itemsThatCome();
    void namesOfOneFile();
    void refusedAttributes();
    void bytesThatCannotBeCopied();
    void otherListings();
    void itemsThatVanish();
    void itemsExchangedForLinks_data();
    void itemsExchangedForLinks();
    void failedRemovals();
};

void FaultTest::cleanup()
{
    s_before = nullptr;
    s_after = nullptr;
    s_listing = Listing::True;
    s_diskType = 0;
}

// A copy is flushed before it gets its name and there, and stays only when that was done.
void FaultTest::flushes()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("tree/inner"));
    writeFile(scratch.path("tree/inner/file"), "file");
    makeLink("tree", scratch.path("link"));
    const QString hidden =
        QString::fromStdString(".tarnwell-" + platform::locationHash("copy") + ".0");
    QStringList made;
    const auto copyFailingAt = [&](const std::string &source, long diskType,
                                   const QString &failing) {
        made.clear();
        s_diskType = diskType;
        s_before = [&](const Call &call) {
            if (call.function.find("sync") == std::string::npos) {
                return 0;
            }
            made += QString::fromStdString(call.function);
            if (call.item >= 0) {
                const auto path =
                    std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(call.item));
                made.last() +=
                    ' ' + QString::fromStdString(path.lexically_relative(scratch.path()));
            }
            made.last().replace(hidden, "hidden");
            return made.last() == failing ? EIO : 0;
        };
        const QString error = scratch.copy(source, "copy");
        cleanup();
        return error;
    };
    const QStringList each = {"fsync hidden/item/inner/file",
                              "fsync hidden/item/inner",
                              "fsync hidden/item",
                              "fsync copy",
                              "fsync .",
                              "sync"};
    const std::tuple<const char *, long, QStringList> copies[] = {
        {"tree/inner/file", 0, {"fsync hidden/item", "fsync copy", "fsync ."}},
        {"tree", 0, {"syncfs hidden", "fsync copy", "fsync ."}},
        {"link", 0, {"syncfs hidden", "fsync ."}},
        {"tree", 0x65735546, each},  // FUSE: a program does not hear of a flush of the disk
        {"tree", 0x01021997, each},  // 9P
        {"tree", 0xFE534D42, each}}; // SMB
    for (const auto &[source, diskType, calls] : copies) {
        for (const QString &call : calls) {
            const bool canFail = call != "sync";
            const QString error = copyFailingAt(source, diskType, call);
            QCOMPARE(error.endsWith(": the disk reported an error."), canFail);
            QCOMPARE(scratch.names().contains("copy"), !canFail);
            scratch.remove("copy");
        }
        QCOMPARE(copyFailingAt(source, diskType, {}), "");
        QCOMPARE(made, calls);
        QCOMPARE(scratch.remove("copy"), "");
    }
}

// A disk may not be able to move an item only where nothing is.
void FaultTest::itemsThatCome()
{
    for (const int error : {0, EINVAL, ENOSYS}) {
        const ScratchFolder scratch;
        makePlainTree(scratch.path("tree"), 10);
        bool comes = true;
        s_before = [&](const Call &call) {
            if (call.function == "renameat2" && comes) {
                makeFolder(scratch.path("copy"));
            }
            return call.function == "renameat2" ? error : 0;
        };
        QVERIFY(scratch.copy("tree", "copy").endsWith(": an item with this name exists already."));
        comes = false;
        QCOMPARE(scratch.names("copy"), QStringList());
        QCOMPARE(scratch.remove("copy"), "");
        QCOMPARE(scratch.copy("tree", "copy"), "");
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
        makeFolder(scratch.path("tree"));
        writeFile(scratch.path("tree/0"), "linked");
        for (const char *name : {"1", "2", "3", "4", "5"}) {
            std::filesystem::create_hard_link(scratch.path("tree/0"), scratch.path("tree/") + name);
        }
        const bool isAccident = failures == 1;
        s_before = [&, error = error, names = names,
                    failures = failures](const Call &call) mutable {
            struct stat status = {};
            const bool isRefused = call.function == "linkat" && failures > 0 &&
                                   ::fstatat(call.item, call.name.c_str(), &status, 0) == 0 &&
                                   status.st_nlink >= names;
            failures -= isRefused ? 1 : 0;
            return isRefused ? error : 0;
        };
        QCOMPARE(scratch.copy("tree", "copy"), "");
        QCOMPARE(scratch.names("copy").size(), 6);
        for (const QString &name : scratch.names("copy")) {
            const struct stat status = statusOf(scratch.path("copy/" + name.toStdString()));
            QCOMPARE(status.st_size, 6);
            QVERIFY(!isAccident || status.st_nlink == 6);
        }
    }
}

// A user's own are not lost in silence. The system's may need privileges.
void FaultTest::refusedAttributes()
{
    const ScratchFolder scratch;
    writeFile(scratch.path("file"), "file");
    ::setxattr(scratch.path("file").c_str(), "user.note", "note", 4, 0);
    QVERIFY(runOn(scratch.path("file"), "setfacl", {"-m", "u:1234:r"}));
    const std::tuple<std::string, int, QString> refusals[] = {
        {"user.note", EACCES, "“file” could not be copied: permission was denied."},
        {"user.note", E2BIG, "“file” could not be copied: Argument list too long."},
        {"system.posix_acl_access", EPERM, ""}};
    for (const auto &[attribute, error, words] : refusals) {
        s_before = [name = attribute, errorNumber = error](const Call &call) {
            return call.function == "fsetxattr" && call.name == name ? errorNumber : 0;
        };
        QCOMPARE(scratch.copy("file", "copy"), words);
    }
}

// The kernel may be unable to copy bytes that can be read, and a file may become shorter.
void FaultTest::bytesThatCannotBeCopied()
{
    const ScratchFolder scratch;
    for (const auto size : {300'000U, 1'000U}) {
        writeFile(scratch.path("file"), std::string(300'000, 'f'));
        s_before = [&](const Call &call) {
            if (call.function != "copy_file_range") {
                return 0;
            }
            std::filesystem::resize_file(scratch.path("file"), size);
            return EIO;
        };
        QCOMPARE(scratch.copy("file", "copy"), "");
        QCOMPARE(std::filesystem::file_size(scratch.path("copy")), size);
        QCOMPARE(scratch.remove("copy"), "");
    }
}

void FaultTest::otherListings()
{
    const ScratchFolder scratch;
    makeOddTree(scratch.path("tree"));
    const Snapshot before = snapshot(scratch.path("tree"));
    const auto size = scratch.files().totalSize(scratch.path("tree"));
    for (const Listing listing :
         {Listing::Unknown, Listing::Changed, Listing::Files, Listing::Twice}) {
        s_listing = listing;
        const QString error = scratch.copy("tree", "copy");
        const auto sizeOfListing = scratch.files().totalSize(scratch.path("tree"));
        s_listing = Listing::True;
        QCOMPARE(error, "");
        QCOMPARE(difference(before, snapshot(scratch.path("copy"))), QString());
        QVERIFY(listing != Listing::Unknown || sizeOfListing == size);
        s_listing = listing;
        QCOMPARE(scratch.remove("copy"), "");
        QVERIFY(!isThere(scratch.path("copy")));
    }
}

// An application at work removes a file now and then. Of a folder that is removed there is no copy.
void FaultTest::itemsThatVanish()
{
    using Change = std::function<void(const ScratchFolder &)>;
    const std::pair<Change, QString> changes[] = {
        {[](const auto &scratch) { std::filesystem::remove(scratch.path("tree/1/60")); }, ""},
        {[](const auto &scratch) {
             for (int file = 0; file < 150; ++file) {
                 const auto folder = std::to_string(file / 50);
                 std::filesystem::remove(scratch.path("tree/" + folder + '/') +
                                         std::to_string(file));
             }
         },
         "“tree” could not be copied: it was removed meanwhile."},
        {[](const auto &scratch) {
             std::filesystem::rename(scratch.path("tree"), scratch.path("moved"));
         },
         "“tree” could not be copied: it was removed meanwhile."}};
    for (const auto &[change, words] : changes) {
        const ScratchFolder scratch;
        makePlainTree(scratch.path("tree"), 150);
        s_after = [&, change = change, isDone = false](const Call &call) mutable {
            if (call.function == "getdents64" && ::faccessat(call.item, "60", F_OK, 0) == 0 &&
                !std::exchange(isDone, true)) {
                change(scratch);
            }
            return 0;
        };
        QCOMPARE(scratch.copy("tree", "copy"), words);
        QCOMPARE(isThere(scratch.path("copy")), words.isEmpty());
        QCOMPARE(scratch.names().size(), words.isEmpty() ? 2 : 1);
    }
}

void FaultTest::itemsExchangedForLinks_data()
{
    QTest::addColumn<std::string>("function");
    QTest::addColumn<std::string>("name");
    QTest::addColumn<std::string>("target");
    QTest::addColumn<bool>("isRemoval");
    const auto row = [](const char *tag, const char *function, const char *name, const char *target,
                        bool isRemoval = false) {
        QTest::newRow(tag) << std::string(function) << std::string(name) << std::string(target)
                           << isRemoval;
    };
    row("folder", "getdents64", "inner", "");
    row("file", "getdents64", "file", "/secret");
    row("folder being made", "mkdirat", "inner", "");
    row("folder being checked", "getdents64", "inner", "", true);
    row("folder being removed", "renameat2", "item", "", true);
    row("closed top folder", "fchmodat", "tree", "", true);
    row("closed folder", "fchmodat", "inner", "", true);
}

// Between a look at an item and its use it becomes a link to a folder or a file elsewhere.
void FaultTest::itemsExchangedForLinks()
{
    QFETCH(std::string, function);
    QFETCH(std::string, name);
    QFETCH(std::string, target);
    QFETCH(bool, isRemoval);
    const ScratchFolder scratch;
    const std::string secret(100'000, 's');
    QVERIFY(isDoneByOrdinaryUser([&] {
        makeFolder(scratch.path("outside/inner"));
        makeFolder(scratch.path("outside"), 0750);
        writeFile(scratch.path("outside/secret"), secret);
        writeFile(scratch.path("outside/inner/secret"), secret);
        makeFolder(scratch.path("tree/inner"));
        writeFile(scratch.path("tree/inner/file"), "file");
        writeFile(scratch.path("tree/file"), "file");
        const Snapshot outside = snapshot(scratch.path("outside"));
        if (function == "fchmodat") {
            ::chmod(scratch.path(name == "tree" ? name : "tree/" + name).c_str(), 0);
        }
        bool isExchanged = false;
        const Hook exchange = [&](const Call &call) {
            const char *const item = name.c_str();
            const bool isMeant = call.function == function &&
                                 (call.name.empty() || call.name == name) &&
                                 ::faccessat(call.item, item, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
            if (isMeant && !std::exchange(isExchanged, true)) {
                ::renameat(call.item, item, AT_FDCWD, scratch.path("aside").c_str());
                return ::symlinkat(scratch.path("outside" + target).c_str(), call.item, item);
            }
            return 0;
        };
        (function == "fchmodat" ? s_before : s_after) = exchange;
        isRemoval ? scratch.remove("tree") : scratch.copy("tree", "copy");
        cleanup();
        std::size_t secrets = 0;
        for (const auto &item : std::filesystem::recursive_directory_iterator(
                 scratch.path(), std::filesystem::directory_options::skip_permission_denied)) {
            secrets +=
                !item.is_symlink() && item.is_regular_file() && item.file_size() == secret.size();
        }
        const QString changes = difference(outside, snapshot(scratch.path("outside")));
        return isExchanged && secrets == 2 && changes.isEmpty();
    }));
}

// What is left of a folder comes back, with its mode. A full disk has no room to hide it in.
void FaultTest::failedRemovals()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("tree"));
    writeFile(scratch.path("tree/file"), "");
    makeFolder(scratch.path("tree"), 0500);
    s_before = [](const Call &call) {
        return call.function == "unlinkat" && call.name == "file" ? EIO : 0;
    };
    QCOMPARE(scratch.remove("tree"),
             "“tree/file” could not be removed: the disk reported an error.");
    QCOMPARE(scratch.names("tree"), QStringList({"file"}));
    QCOMPARE(statusOf(scratch.path("tree")).st_mode & 0777U, 0500U);
    s_before = [](const Call &call) { return call.function == "mkdirat" ? ENOSPC : 0; };
    QCOMPARE(scratch.remove("tree"), "");
    QCOMPARE(scratch.names(), QStringList());
}

QTEST_GUILESS_MAIN(FaultTest)

#include "FaultTest.moc"
