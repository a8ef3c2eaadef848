#include "system/platform/files/LibraryOwners.h"
#include "system/platform/files/LookupMemory.h"
#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>

#include <filesystem>

using platform::FileService;
using platform::Volume;

class VolumeTest : public QObject
{
    Q_OBJECT

private slots:
    void sameNames_data();
    void sameNames();
    void choiceAmongSameNames();
    void twoVolumes();
    void users();
    void homeFolders();
    void linksStayInside();
    void longPaths();
    void parents();
    void missingVolume();
};

void VolumeTest::sameNames_data()
{
    QTest::addColumn<std::string>("stored");
    QTest::addColumn<std::string>("asked");
    QTest::addColumn<bool>("isSame");
    const auto row = [](const char *name, const std::string &stored, const std::string &asked,
                        bool isSame = true) { QTest::newRow(name) << stored << asked << isSame; };
    std::string nfc; // 240 bytes; in the other form more than a name may have
    std::string nfd;
    for (int i = 0; i < 120; ++i) {
        nfc += "\u00e9";
        nfd += "e\u0301";
    }
    row("case", "com.Foo.Bar.plist", "COM.foo.bar.PLIST");
    row("composed on disk", "Caf\u00e9", "CAFE\u0301");
    row("decomposed on disk", "Cafe\u0301", "caf\u00c9");
    row("order of marks", "a\u0323\u0307", "\u0227\u0323");
    row("order of marks that fold", "\u03b1\u0345\u0301", "\u1fb4");
    row("Hangul", "\ud55c\uae00", "\u1112\u1161\u11ab\u1100\u1173\u11af");
    row("longer name for shorter", nfc, nfd);
    row("sharp s", "Stra\u00dfe", "STRASSE");
    row("sharp s on disk in full", "Strasse", "stra\u1e9ee");
    row("final sigma", "\u039f\u0394\u039f\u03a3", "\u03bf\u03b4\u03bf\u03c2");
    row("sigmas", "\u03c3", "\u03c2");
    row("Kelvin sign for a letter", "\u212a", "k");
    row("Turkish capital I", "\u0130", "i\u0307");
    row("Turkish dotless i", "\u0131", "i", false);
    row("Turkish capital I is no i", "\u0130", "i", false);
    row("accents count", "Cafe", "Caf\u00e9", false);
    row("compatibility forms", "x\u00b2", "x2", false);
    row("characters that do not show", "a\u200bb", "ab", false);
    row("beginning", "Foo.plist", "foo", false);
    row("no UTF-8", "caf\xe9", "CAF\xe9", false);
    row("no UTF-8 but itself", "caf\xe9", "caf\xe9");
    row("UTF-8 beside a broken byte", "\u00c9\xff", "\u00e9\xff", false);
}

void VolumeTest::sameNames()
{
    QFETCH(std::string, stored);
    QFETCH(std::string, asked);
    QFETCH(bool, isSame);
    const ScratchFolder scratch;
    makeFolder(scratch.path("Folder/other"));
    makeFolder(scratch.path("Folder/" + stored));
    writeFile(scratch.path("Folder/" + stored + "/File"), "");
    const Volume volume(scratch.path(), "anna");
    const FileService files(volume);
    const std::string found = isSame ? scratch.path("Folder/" + stored + "/File") : "";
    QCOMPARE(volume.hostPath("//FOLDER//" + asked + "/file/"), found);
    QCOMPARE(volume.hostPath("/Folder/" + asked + "/File"), found);
    QVERIFY(!files.exists("/folder/none/file"));
    // The host's own names are what they are.
    QCOMPARE(scratch.files().exists(scratch.path("Folder/" + asked)), asked == stored);

    // What is to be made keeps the spelling asked for, unless it is there already.
    std::string name;
    QVERIFY(volume.openParent("/folder/" + asked, name).isOpen());
    QCOMPARE(name, isSame ? stored : asked);
    QCOMPARE(!files.copy("/folder/OTHER", "/folder/" + asked), !isSame && asked.size() < NAME_MAX);
    QVERIFY(!files.remove("/FOLDER/" + asked));
    QCOMPARE(isThere(scratch.path("Folder/" + stored)), !isSame);
}

void VolumeTest::choiceAmongSameNames()
{
    const ScratchFolder scratch;
    for (const char *folder : {"USERS", "Users/anna", "uSERS/anna"}) {
        makeFolder(scratch.path(folder));
    }
    const Volume volume(scratch.path(), "anna");
    QCOMPARE(volume.hostPath("/uSERS/ANNA"), scratch.path("uSERS/anna")); // exact before first
    QCOMPARE(volume.hostPath("/users"), scratch.path("USERS"));           // first in byte order
    QCOMPARE(volume.hostPath("/users/ANNA"), scratch.path("Users/anna")); // first that holds it
    makeFolder(scratch.path("users"));
    QCOMPARE(volume.hostPath("/users"), scratch.path("users"));
    QCOMPARE(volume.hostPath("/users/anna"), scratch.path("Users/anna"));
    QCOMPARE(volume.hostPath("/users/none"), std::string());
    makeFolder(scratch.path("uSERS/anna/Library")); // too deep to be looked for
    QCOMPARE(volume.hostPath("/users/anna/library"), std::string());
    makeFolder(scratch.path("Users/anna/library"));
    QCOMPARE(platform::usersWithLibrary(volume), std::vector<std::string>{"anna"});
    std::string name; // what is new goes where its folder was found
    QVERIFY(volume.openParent("/users/anna/Library/new", name).isOpen());
    writeFile(scratch.path("Users/anna/library/x"), "");
    QVERIFY(!FileService(volume).copy("/users/anna/Library/x", "/users/anna/Library/x.bak"));
    QVERIFY(isThere(scratch.path("Users/anna/library/x.bak")));
    {
        const platform::LookupMemory memory; // does not hide what disappears, nor outlives itself
        QCOMPARE(volume.hostPath("/UseRS"), scratch.path("USERS"));
        QVERIFY(::rmdir(scratch.path("USERS").c_str()) == 0);
        QCOMPARE(volume.hostPath("/UseRS"), std::string());
    }
    QCOMPARE(volume.hostPath("/UseRS"), scratch.path("Users"));
    makeFolder(scratch.path("USERS"));
    QVERIFY(!FileService(volume).remove("/users"));
    QCOMPARE(scratch.names(), QStringList({"USERS", "Users", "uSERS"}));
}

void VolumeTest::twoVolumes()
{
    const ScratchFolder scratch;
    const std::string data = scratch.path("System/Volumes/Data");
    for (const char *folder :
         {"/Users/Anna/Library", "/Users/Shared", "/Applications", "/System"}) {
        makeFolder(data + folder);
    }
    for (const char *folder : {"System/Applications", "Users", "Applications"}) {
        makeFolder(scratch.path(folder));
    }
    makeLink("/Users/Anna", data + "/Users/Shared/absolute");
    makeLink("../../USERS/Anna", scratch.path("System/Applications/relative"));
    makeLink("../system/applications", data + "/Applications/back");
    const Volume volume(scratch.path(), "anna");
    const std::string library = data + "/Users/Anna/Library";
    for (const char *path :
         {"/Users/Anna/Library", "/users/anna/library", "/users/shared/absolute/Library",
          "/System/Applications/Relative/library", "/system/volumes/data/users/anna/library"}) {
        QCOMPARE(volume.hostPath(path), library);
    }
    QCOMPARE(volume.hostPath("/System"), scratch.path("System"));
    QCOMPARE(volume.hostPath("/Applications/back/."), scratch.path("System/Applications"));
    QCOMPARE(volume.hostPath("/../Users/../users/anna/../../APPLICATIONS/back"),
             data + "/Applications/back");
    std::string name;
    QVERIFY(volume.openParent("/users/anna/Library/x.bak", name).isOpen());
    writeFile(library + "/X", "");
    QVERIFY(!FileService(volume).copy("/users/anna/library/x", "/users/anna/library/x.bak"));
    QVERIFY(isThere(library + "/x.bak"));
    QVERIFY(!FileService(volume).exists("/Users/none"));
    QCOMPARE(platform::usersWithLibrary(volume), std::vector<std::string>{"Anna"});
}

void VolumeTest::users()
{
    const ScratchFolder scratch;
    for (const char *folder : {"mira/Library", "Anna/library", "Shared/Library", "guest/Library",
                               ".hidden/Library", "empty", "file"}) {
        makeFolder(scratch.path("users/") + folder);
    }
    writeFile(scratch.path("users/file/Library"), "");
    using Names = std::vector<std::string>;
    QCOMPARE(platform::usersWithLibrary(Volume(scratch.path(), "")), Names({"Anna", "mira"}));
    QCOMPARE(platform::usersWithLibrary(Volume(scratch.path("users"), "")), Names());
    QCOMPARE(platform::usersWithLibrary(Volume("/", "")), Names());

    // The current volume is told once in a process.
    const passwd *self = ::getpwuid(::getuid());
    const auto isCurrentUser = [&scratch](const std::string &user, const char *named) {
        return waitFor(start([&] {
            ::setenv("TARNWELL_VOLUME", scratch.path().c_str(), 1);
            ::setenv("TARNWELL_USER", named, 1);
            return Volume::current().userName() == user;
        }));
    };
    QVERIFY(isCurrentUser("Mira", "Mira"));
    QVERIFY(isCurrentUser(self->pw_name, "")); // nobody knows which of two
    ::rename(scratch.path("users/mira/Library").c_str(), scratch.path("users/mira/x").c_str());
    QVERIFY(isCurrentUser("Anna", ""));
    makeFolder(scratch.path("users/") + self->pw_name + "/LIBRARY");
    QVERIFY(isCurrentUser(self->pw_name, ""));
}

void VolumeTest::homeFolders()
{
    const passwd *self = ::getpwuid(::getuid());
    if (self == nullptr || ::access(self->pw_dir, X_OK) != 0) {
        QSKIP("this user has no home folder");
    }
    const Volume host("/proc/self/root", "anna"); // the host's root by another name
    QVERIFY(host.isHost());
    QCOMPARE(host.hostPath(std::string("/users/") + self->pw_name),
             QString(self->pw_dir).toStdString());
    QCOMPARE(host.hostPath("/users/nobody of this name"), std::string());
    QCOMPARE(host.hostPath("/"), std::string("/"));
}

void VolumeTest::linksStayInside()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("volume/folder/anna/Inner"));
    makeFolder(scratch.path("volume/folder/none"));
    writeFile(scratch.path("outside"), "");
    writeFile(scratch.path("volume/inside"), "");
    makeLink("/inside", scratch.path("volume/absolute"));
    makeLink("../../../../inside", scratch.path("volume/folder/upwards"));
    makeLink("../outside", scratch.path("volume/escape"));
    makeLink("/FOLDER", scratch.path("volume/Users"));
    makeLink("../Users/./none/../ANNA/", scratch.path("volume/folder/other"));
    makeLink("LOOP/x", scratch.path("volume/loop"));
    makeLink("../../outside", scratch.path("volume/folder/Out"));
    const Volume volume(scratch.path("volume"), "anna");
    const FileService files(volume);
    for (const char *path : {"/absolute", "/folder/upwards", "/../inside", "/ABSOLUTE",
                             "/Folder/Upwards", "/users/OTHER/inner/../../../../INSIDE"}) {
        QVERIFY2(files.exists(path), path);
    }
    for (const std::string &path :
         {std::string("/escape"), std::string("/../outside"), std::string("/ESCAPE"),
          std::string("/folder/out"), std::string("/x/../OUTSIDE"),
          std::string("/INSIDE/../inside"), std::string("inside"), '/' + std::string(5000, 'x')}) {
        QVERIFY2(!files.exists(path), path.c_str());
    }
    QVERIFY(!files.exists("/Loop"));
    QCOMPARE(errno, ELOOP);
    QCOMPARE(volume.hostPath("/users/anna"), scratch.path("volume/folder/anna"));
    QCOMPARE(volume.hostPath("/users/other/inner"), scratch.path("volume/folder/anna/Inner"));
    QCOMPARE(volume.hostPath("/users/Other"), scratch.path("volume/folder/other"));
    QCOMPARE(volume.hostPath("/absolute"), scratch.path("volume/absolute"));
    QVERIFY(!volume.open("/absolute", O_RDONLY | O_NOFOLLOW).isOpen());
    QVERIFY((::fcntl(volume.open("/inside", O_RDONLY).get(), F_GETFD) & FD_CLOEXEC) != 0);
}

void VolumeTest::longPaths()
{
    const ScratchFolder scratch;
    const std::string name(200, 'n');
    const std::string asked(200, 'N');
    const std::filesystem::path start = std::filesystem::current_path();
    std::string exact;
    std::string path;
    std::filesystem::current_path(scratch.path());
    for (int depth = 0; depth < 2 * PATH_MAX / 200; ++depth) {
        QVERIFY(::mkdir(name.c_str(), 0755) == 0 && ::chdir(name.c_str()) == 0);
        exact += '/' + name;
        path += '/' + asked;
    }
    writeFile("File", "12345");
    makeLink("../" + asked + "/FILE", "link"); // leads out of the last folder
    makeLink("/etc", "host");
    std::filesystem::current_path(start);
    const Volume volume(scratch.path(), "anna");
    const FileService files(volume);
    for (const char *item : {"/File", "/FILE", "/Link"}) {
        QVERIFY2(files.exists(path + item), item);
    }
    for (const std::string &folder : {exact, path}) {
        QVERIFY(files.exists(folder) && !files.exists(folder + "/host/passwd"));
    }
    QVERIFY(!files.copy(path + "/file", path + "/FILE.bak"));
    QCOMPARE(files.attributes(path + "/file.BAK")->size, 5U);
    QVERIFY(!files.remove('/' + asked));
}

void VolumeTest::parents()
{
    const ScratchFolder scratch;
    makeFolder(scratch.path("folder"));
    const Volume volume(scratch.path(), "anna");
    std::string name;
    QVERIFY(volume.openParent("/folder//item//", name).isOpen());
    QCOMPARE(name, std::string("item"));
    QVERIFY(!volume.openParent("/none/item", name).isOpen());
    QCOMPARE(errno, ENOENT);
    using namespace std::string_view_literals;
    for (const std::string_view path :
         {""sv, "/"sv, "//"sv, "item"sv, "/folder/."sv, "/folder/.."sv, "/with\0zero"sv}) {
        QVERIFY(!volume.openParent(path, name).isOpen());
        QCOMPARE(errno, EINVAL);
    }
}

void VolumeTest::missingVolume()
{
    const ScratchFolder scratch;
    const Volume volume(scratch.path("none"), "anna");
    const FileService files(volume);
    QVERIFY(!volume.isHost() && !files.exists("/"));
    QVERIFY(!files.attributes("/users/anna") && !files.contents("/"));
    QCOMPARE(files.totalSize("/"), 0U);
    QCOMPARE(volume.hostPath("/"), std::string());
    QVERIFY(files.copy("/a", "/b") && files.remove("/a"));
}

QTEST_GUILESS_MAIN(VolumeTest)

#include "VolumeTest.moc"
