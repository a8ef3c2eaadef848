#include "tests/system/platform/files/FileTree.h"

#include <QTest>

#include <fcntl.h>
#include <pwd.h>

using platform::FileService;
using platform::Volume;

class VolumeTest : public QObject
{
    Q_OBJECT

private slots:
    void usersFolder_data();
    void usersFolder();
    void homeFolders();
    void linksStayInside();
    void parents();
    void longPaths();
    void missingVolume();
};

void VolumeTest::usersFolder_data()
{
    QTest::addColumn<QStringList>("folders");
    QTest::addColumn<QString>("found");
    QTest::newRow("capital") << QStringList({"Users", "Users/anna"}) << "Users/anna";
    QTest::newRow("small") << QStringList({"users", "users/anna"}) << "users/anna";
    QTest::newRow("capital has her")
        << QStringList({"users", "Users", "Users/anna"}) << "Users/anna";
    QTest::newRow("both have her")
        << QStringList({"users", "users/anna", "Users", "Users/anna"}) << "users/anna";
    QTest::newRow("small, without her") << QStringList({"users", "Users"}) << QString();
    QTest::newRow("none") << QStringList({"Other"}) << QString();
}

void VolumeTest::usersFolder()
{
    QFETCH(QStringList, folders);
    QFETCH(QString, found);
    const ScratchFolder scratch;
    for (const QString &folder : folders) {
        makeFolder(scratch.path(folder.toStdString()));
    }
    const Volume volume(scratch.path(), "anna");
    QVERIFY(!volume.isHost());
    const std::string expected =
        found.isEmpty() ? std::string() : scratch.path(found.toStdString());
    QCOMPARE(volume.hostPath("/users/anna"), expected);
    QCOMPARE(volume.hostPath("//users//anna/"), expected);
    if (!found.isEmpty()) {
        writeFile(expected + "/file", "");
        QVERIFY(FileService(volume).exists("/users/anna/file"));
    }
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
    makeFolder(scratch.path("volume"));
    makeFolder(scratch.path("volume/folder"));
    writeFile(scratch.path("outside"), "");
    writeFile(scratch.path("volume/inside"), "");
    ::symlink("/inside", scratch.path("volume/absolute").c_str());
    ::symlink("../../../../inside", scratch.path("volume/folder/upwards").c_str());
    ::symlink("../outside", scratch.path("volume/escape").c_str());
    ::symlink("/folder", scratch.path("volume/Users").c_str());
    makeFolder(scratch.path("volume/folder/anna"));
    const Volume volume(scratch.path("volume"), "anna");
    const FileService files(volume);
    QVERIFY(files.exists("/absolute"));
    QVERIFY(files.exists("/folder/upwards"));
    QVERIFY(files.exists("/../inside"));
    QVERIFY(!files.exists("/escape"));
    QVERIFY(!files.exists("/../outside"));
    QCOMPARE(volume.hostPath("/users/anna"), scratch.path("volume/folder/anna"));
    QCOMPARE(volume.hostPath("/absolute"), scratch.path("volume/absolute"));
    QVERIFY(!volume.open("/absolute", O_RDONLY | O_NOFOLLOW).isOpen());
    QVERIFY((::fcntl(volume.open("/inside", O_RDONLY).get(), F_GETFD) & FD_CLOEXEC) != 0);
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

void VolumeTest::longPaths()
{
    const ScratchFolder scratch;
    const std::string component(200, 'd');
    std::string path;
    platform::FileDescriptor folder(::open(scratch.path().c_str(), O_RDONLY | O_DIRECTORY));
    for (int i = 0; i < 60; ++i) {
        path += '/' + component;
        QCOMPARE(::mkdirat(folder.get(), component.c_str(), 0755), 0);
        folder = platform::FileDescriptor(
            ::openat(folder.get(), component.c_str(), O_RDONLY | O_DIRECTORY));
    }
    const Volume volume(scratch.path(), "anna");
    QVERIFY(FileService(volume).exists(path));
    QVERIFY(!FileService(volume).exists(path + "/none"));
    QVERIFY(!FileService(volume).exists('/' + std::string(5000, 'x')));
    std::string error;
    QVERIFY2(FileService(volume).copy(path, path + "2", error), error.c_str());
    QVERIFY2(FileService(volume).remove(path, error), error.c_str());
    QVERIFY(FileService(volume).exists(path + "2/"));
}

void VolumeTest::missingVolume()
{
    const ScratchFolder scratch;
    const Volume volume(scratch.path("none"), "anna");
    const FileService files(volume);
    std::string error;
    QVERIFY(!volume.isHost());
    QVERIFY(!files.exists("/"));
    QVERIFY(!files.attributes("/users/anna"));
    QVERIFY(!files.contents("/"));
    QCOMPARE(files.totalSize("/"), 0U);
    QCOMPARE(volume.hostPath("/"), std::string());
    QVERIFY(!files.copy("/a", "/b", error));
    QVERIFY(!error.empty());
    QVERIFY(!files.remove("/a", error));
}

QTEST_GUILESS_MAIN(VolumeTest)

#include "VolumeTest.moc"
