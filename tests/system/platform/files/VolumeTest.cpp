#include "system/platform/files/LibraryOwners.h"
#include "system/platform/files/LookupMemory.h"
#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <limits.h>
#include <pwd.h>

using platform::FileService;
using platform::Volume;

namespace {

using Names = std::vector<std::string>;

/// A volume in a scratch folder, filled by a shell script.
class Disk : public ScratchFolder
{
public:
    explicit Disk(const std::string &script) { run(script); }
    const Volume &volume() const { return m_volume; }
    const FileService &files() const { return m_files; }

    /// Where on the disk an item is found, itself if it is a link; nothing if it is not.
    std::string found(const std::string &asked) const
    {
        const std::string host = m_volume.hostPath(asked);
        return host.starts_with(path()) ? host.substr(path().size()) : host;
    }

private:
    Volume m_volume{path(), "anna"};
    FileService m_files{m_volume};
};

} // namespace

class VolumeTest : public QObject
{
    Q_OBJECT

private slots:
    void sameNames();
    void choiceAmongSameNames();
    void places();
    void users();
    void longPaths();
    void pathsOfNothing();
};

void VolumeTest::sameNames()
{
    std::string nfc; // 240 bytes; in the other form more than a name may have
    std::string nfd;
    for (int i = 0; i < 120; ++i) {
        nfc += "\u00e9";
        nfd += "e\u0301";
    }
    // What is stored, what is asked for, and whether that is the same.
    const std::tuple<std::string, std::string, bool> names[] = {
        {"com.Foo.Bar.plist", "COM.foo.bar.PLIST", true},
        {"Caf\u00e9", "CAFE\u0301", true},
        {"Cafe\u0301", "caf\u00c9", true},
        {"a\u0323\u0307", "\u0227\u0323", true}, // marks in another order
        {"\u03b1\u0345\u0301", "\u1fb4", true},  // marks that fold
        {nfc, nfd, true},
        {"Stra\u00dfe", "STRASSE", true},
        {"\u039f\u0394\u039f\u03a3", "\u03bf\u03b4\u03bf\u03c2", true}, // a final sigma
        {"\u212a", "k", true},                                          // the Kelvin sign
        {"\u0131", "i", false},
        {"Cafe", "Caf\u00e9", false},
        {"x\u00b2", "x2", false},
        {"a\u200bb", "ab", false},
        {"Foo.plist", "foo", false},
        {"caf\xe9", "CAF\xe9", false}, // no UTF-8
        {"caf\xe9", "caf\xe9", true}};
    for (const auto &[stored, asked, isSame] : names) {
        const Disk disk("mkdir -p Folder/other");
        makeFolder(disk.path("Folder/" + stored));
        writeFile(disk.path("Folder/" + stored + "/File"), "");
        const std::string file = isSame ? "/Folder/" + stored + "/File" : "";
        QCOMPARE(disk.found("//FOLDER//" + asked + "/file/"), file);
        QCOMPARE(disk.found("/Folder/" + asked + "/File"), file);
        // The host's own names are what they are.
        QCOMPARE(Volume("/", "").hostPath(disk.path("Folder/" + asked)).empty(), asked != stored);

        // What is to be made keeps the spelling asked for, unless it is there already.
        QCOMPARE(!disk.files().copy("/folder/OTHER", "/folder/" + asked), !isSame);
        QVERIFY(isThere(disk.path("Folder/" + (isSame ? stored : asked))));
        QVERIFY(!disk.files().remove("/FOLDER/" + asked));
        QCOMPARE(isThere(disk.path("Folder/" + stored)), !isSame);
    }
}

void VolumeTest::choiceAmongSameNames()
{
    const Disk disk("mkdir -p USERS Users/anna uSERS/anna");
    QCOMPARE(disk.found("/uSERS/ANNA"), "/uSERS/anna"); // exact before first
    QCOMPARE(disk.found("/users"), "/USERS");           // first in byte order
    QCOMPARE(disk.found("/users/ANNA"), "/Users/anna"); // first that holds it
    makeFolder(disk.path("users"));
    QCOMPARE(disk.found("/users"), "/users");
    QCOMPARE(disk.found("/users/anna"), "/Users/anna");
    QCOMPARE(disk.found("/users/none"), "");
    makeFolder(disk.path("uSERS/anna/Library")); // too deep to be looked for
    QCOMPARE(disk.found("/users/anna/library"), "");
    disk.run("mkdir Users/anna/library; touch Users/anna/library/x");
    QCOMPARE(platform::usersWithLibrary(disk.volume()), Names{"anna"});
    // What is new goes where its folder is.
    QVERIFY(!disk.files().copy("/users/anna/Library/x", "/users/anna/Library/x.bak"));
    QVERIFY(isThere(disk.path("Users/anna/library/x.bak")));
    {
        const platform::LookupMemory memory; // does not hide what disappears, nor outlives itself
        QCOMPARE(disk.found("/UseRS"), "/USERS");
        QVERIFY(!disk.files().remove("/USERS"));
        QCOMPARE(disk.found("/UseRS"), "");
    }
    QCOMPARE(disk.found("/UseRS"), "/Users");
}

void VolumeTest::places()
{
    const Disk around(R"(
        mkdir -p outside disk/{inside,Users,Applications} disk/folder/{none,anna/Inner}
        mkdir -p disk/System/{Applications,Volumes/Data/{System,Applications}}
        mkdir -p disk/System/Volumes/Data/Users/{Shared,Anna/Library}
        cd disk; ln -s ../outside escape; ln -s LOOP/x loop; ln -s /inside absolute
        ln -s /FOLDER homes; touch folder/file; ln -s ../../outside folder/Out
        ln -s ../../../../inside folder/upwards; ln -s ../Homes/./none/../ANNA/ folder/other
        ln -s ../../USERS/Anna System/Applications/relative; cd System/Volumes/Data
        ln -s /Users/Anna Users/Shared/absolute; ln -s ../system/applications Applications/back)");
    // Links lead where they would if the disk were the whole world. What its second volume holds is
    // seen at the root.
    const std::pair<std::string, Names> places[] = {
        {"/absolute", {"/absolute"}},
        {"/inside",
         {"/ABSOLUTE/.", "/folder/upwards/.", "/../Folder/Upwards/.",
          "/homes/OTHER/inner/../../../../INSIDE"}},
        {"/folder/anna", {"/homes/anna"}},
        {"/folder/other", {"/homes/Other"}},
        {"/folder/anna/Inner", {"/homes/other/inner"}},
        {"",
         {"/escape/.", "/ESCAPE/.", "/../outside", "/folder/out/.", "/Loop/.", "/x/../OUTSIDE",
          "/folder/FILE/../anna", "inside", "/Users/none"}},
        {"/System/Volumes/Data/Users/Anna/Library",
         {"/Users/Anna/Library", "/users/shared/absolute/Library",
          "/System/Applications/Relative/library", "/system/volumes/data/users/anna/library"}},
        {"/System", {"/System"}},
        {"/System/Applications", {"/Applications/back/."}},
        {"/System/Volumes/Data/Applications/back",
         {"/../Users/../users/anna/../../APPLICATIONS/back"}}};
    const Volume disk(around.path("disk"), "anna");
    for (const auto &[found, paths] : places) {
        for (const std::string &path : paths) {
            QCOMPARE(disk.hostPath(path), found.empty() ? found : around.path("disk") + found);
        }
    }
    QCOMPARE(platform::usersWithLibrary(disk), Names{"Anna"});
}

void VolumeTest::users()
{
    const Disk disk(R"(
        mkdir -p users/{mira,Shared,guest,.hidden}/Library users/Anna/library users/empty users/file
        touch users/file/Library)");
    QCOMPARE(platform::usersWithLibrary(disk.volume()), Names({"Anna", "mira"}));
    QCOMPARE(platform::usersWithLibrary(Volume("/", "")), Names());

    // The current volume is told once in a process.
    const passwd *self = ::getpwuid(::getuid());
    const auto isCurrentUser = [&disk](const std::string &user, const char *named) {
        return isDoneElsewhere([&] {
            ::setenv("TARNWELL_VOLUME", disk.path().c_str(), 1);
            ::setenv("TARNWELL_USER", named, 1);
            return Volume::current().userName() == user;
        });
    };
    QVERIFY(isCurrentUser("Mira", "Mira"));
    QVERIFY(isCurrentUser(self->pw_name, "")); // nobody knows which of two
    QVERIFY(!disk.files().remove("/users/mira"));
    QVERIFY(isCurrentUser("Anna", ""));
    makeFolder(disk.path("users/") + self->pw_name + "/LIBRARY");
    QVERIFY(isCurrentUser(self->pw_name, ""));

    const Volume host("/proc/self/root", "anna"); // the host's root by another name
    QVERIFY(host.isHost());
    const std::string home = ::access(self->pw_dir, X_OK) == 0 ? self->pw_dir : "";
    QCOMPARE(host.hostPath(std::string("/users/") + self->pw_name), home);
    QCOMPARE(host.hostPath("/users/nobody of this name"), "");
}

void VolumeTest::longPaths()
{
    constexpr int depth = 2 * PATH_MAX / 200;
    const Disk disk("name=$(printf n%.0s {1..200}); for i in {1.." + std::to_string(depth) +
                    "}; do mkdir $name; cd $name; done; printf 12345 >File\n"
                    "ln -s ../${name^^}/FILE link; ln -s /etc host"); // out of the last folder
    const QString name(200, 'n');
    const std::string exact = ('/' + name).repeated(depth).toStdString();
    const std::string path = ('/' + name.toUpper()).repeated(depth).toStdString();
    for (const char *item : {"/File", "/FILE", "/Link"}) {
        QVERIFY2(disk.files().exists(path + item), item);
    }
    for (const std::string &folder : {exact, path}) {
        QVERIFY(disk.files().exists(folder) && !disk.files().exists(folder + "/host/passwd"));
    }
    QVERIFY(!disk.files().copy(path + "/file", path + "/FILE.bak"));
    QVERIFY(disk.files().modificationDate(path + "/file.BAK"));
    QVERIFY(!disk.files().remove(path.substr(0, 201)));
}

void VolumeTest::pathsOfNothing()
{
    using namespace std::string_view_literals;
    const Disk disk("mkdir folder");
    std::string name;
    for (const std::string_view path :
         {""sv, "/"sv, "//"sv, "folder"sv, "/folder/."sv, "/folder/.."sv, "/folder\0"sv}) {
        QVERIFY(!disk.volume().openParent(path, name).isOpen());
        QCOMPARE(errno, EINVAL);
    }
    const Volume missing(disk.path("none"), "anna");
    QVERIFY(!missing.isHost() && missing.hostPath("/").empty());
    QVERIFY(FileService(missing).copy("/a", "/b") && FileService(missing).remove("/a"));
}

QTEST_GUILESS_MAIN(VolumeTest)

#include "VolumeTest.moc"
