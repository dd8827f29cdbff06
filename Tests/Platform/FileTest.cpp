#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "IO/File.h"
#include "Support/TempFolder.h"
#include "ZR/Time.h"

namespace {

IO::Location At(const std::string& path) {
    return IO::Location(ZR::UniString(path));
}

std::vector<std::string> Listing(const IO::Folder& folder, int linkProcessing = 0) {
    std::vector<std::string> names;
    folder.Enumerate(
        [](const IO::Folder&, const IO::Name& name, bool isFolder, void* arg) {
            static_cast<std::vector<std::string>*>(arg)->push_back(name.ToString().Std() +
                                                                   (isFolder ? "/" : ""));
            return true;
        },
        linkProcessing, 0, &names);
    return names;
}

}  // namespace

TEST(File, OnNotFoundModes) {
    krtest::TempFolder tmp;
    EXPECT_EQ(IO::File(At(tmp.Sub("a")), IO::kNotFoundFail).GetStatus(), IO::kErrNotFound);
    EXPECT_EQ(IO::File(At(tmp.Sub("a")), IO::kNotFoundIgnore).GetStatus(), IO::kErrNotFound);
    EXPECT_FALSE(krtest::Exists(tmp.Sub("a")));

    IO::File made(At(tmp.Sub("a")), IO::kNotFoundCreate);
    EXPECT_EQ(made.GetStatus(), IO::kOk);
    EXPECT_EQ(krtest::ReadFile(tmp.Sub("a")), "");

    EXPECT_EQ(IO::File(At(tmp.Sub("missing/a")), IO::kNotFoundCreate).GetStatus(),
              IO::kErrNotFound);
    EXPECT_EQ(IO::File(tmp.Location()).GetStatus(), IO::kErrIsAFolder);

    IO::File* file = reinterpret_cast<IO::File*>(1);
    EXPECT_EQ(IO::File::New(&file, At(tmp.Sub("b")), IO::kNotFoundFail), IO::kErrNotFound);
    EXPECT_EQ(file, nullptr);
}

TEST(File, ReadWriteLengthAndTimes) {
    krtest::TempFolder tmp;
    IO::File file(At(tmp.Sub("f")), IO::kNotFoundCreate);
    ASSERT_EQ(file.Open(IO::kOpenWrite), IO::kOk);
    EXPECT_EQ(file.Open(IO::kOpenRead), IO::kErrInUse);
    ASSERT_EQ(file.Write("hello world", 11), IO::kOk);
    ASSERT_EQ(file.Close(), IO::kOk);
    EXPECT_EQ(file.Close(), IO::kErrNotOpen);

    std::uint64_t length = 0;
    ASSERT_EQ(file.Open(IO::kOpenRead), IO::kOk);
    char buffer[32];
    std::size_t got = 0;
    ASSERT_EQ(file.Read(buffer, sizeof buffer, &got), IO::kOk);
    EXPECT_EQ(std::string(buffer, got), "hello world");
    file.Close();

    // A write mode open truncates.
    ASSERT_EQ(file.Open(IO::kOpenWrite), IO::kOk);
    file.Close();
    ASSERT_EQ(file.GetDataLength(&length), IO::kOk);
    EXPECT_EQ(length, 0u);

    const std::int64_t unixSeconds = 1700000000;
    struct timespec times[2] = {{unixSeconds, 123456789}, {unixSeconds, 123456789}};
    ASSERT_EQ(utimensat(AT_FDCWD, tmp.Sub("f").c_str(), times, 0), 0);
    std::int32_t ti = 0;
    std::int64_t stamp = 0;
    ASSERT_EQ(file.GetModificationTime(&ti), IO::kOk);
    EXPECT_EQ(ti, ZR::UnixToTI(unixSeconds));
    ASSERT_EQ(file.GetModificationStamp(&stamp), IO::kOk);
    EXPECT_EQ(stamp, unixSeconds * 1000000000 + 123456789);
}

TEST(File, HoldExcludesOtherHoldersAndDeleteWithinAndAcrossProcesses) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("held");
    krtest::WriteFile(path, "x");

    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {  // holds until killed
        IO::File file(At(path));
        char status = file.Open(IO::kOpenHold) == IO::kOk ? 'h' : 'f';
        if (write(ready[1], &status, 1) != 1) _exit(2);
        while (true) pause();
    }
    char status = 0;
    ASSERT_EQ(read(ready[0], &status, 1), 1);
    ASSERT_EQ(status, 'h');
    EXPECT_EQ(IO::fileSystem.Delete(tmp.Location(), 0, 0), IO::kErrInUse);
    EXPECT_TRUE(krtest::Exists(path));
    IO::File holder(At(path));
    EXPECT_EQ(holder.Open(IO::kOpenHold), IO::kErrInUse);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    close(ready[0]);
    close(ready[1]);

    // The kernel released the dead holder's lock; within one process it excludes too.
    ASSERT_EQ(holder.Open(IO::kOpenHold), IO::kOk);
    IO::File second(At(path));
    EXPECT_EQ(second.Open(IO::kOpenHold), IO::kErrInUse);
    EXPECT_FALSE(second.IsOpen());
    EXPECT_EQ(IO::fileSystem.Delete(At(path), 0, 0), IO::kErrInUse);
    EXPECT_EQ(IO::Folder(tmp.Location()).Delete("held", 0, 0), IO::kErrInUse);
    chmod(path.c_str(), 0444);  // a read-only file is still protected
    EXPECT_EQ(IO::fileSystem.Delete(At(path), 0, 0), IO::kErrInUse);
    EXPECT_EQ(krtest::ReadFile(path), "x");

    ASSERT_EQ(holder.Close(), IO::kOk);
    // Merely reading a file does not hold it.
    IO::File reader(At(path));
    ASSERT_EQ(reader.Open(IO::kOpenRead), IO::kOk);
    EXPECT_EQ(IO::fileSystem.Delete(At(path), 0, 0), IO::kOk);
    EXPECT_FALSE(krtest::Exists(path));
    EXPECT_EQ(IO::fileSystem.Delete(At(path), 0, 0), IO::kErrNotFound);
    EXPECT_EQ(holder.Open(IO::kOpenHold), IO::kErrNotFound);
}

TEST(Folder, CreateQueryEnumerate) {
    krtest::TempFolder tmp;
    const std::string root = tmp.Sub("a/b");
    EXPECT_EQ(IO::Folder(At(root)).GetStatus(), IO::kErrNotFound);
    EXPECT_EQ(IO::Folder(At(root), IO::kNotFoundIgnore).GetStatus(), IO::kErrNotFound);
    EXPECT_FALSE(krtest::Exists(root));
    IO::Folder folder(At(root), IO::kNotFoundCreate);
    ASSERT_EQ(folder.GetStatus(), IO::kOk);
    EXPECT_TRUE(folder.IsEmpty());

    krtest::WriteFile(root + "/zeta", "1");
    krtest::WriteFile(root + "/Alpha", "1");
    ASSERT_EQ(mkdir((root + "/mid").c_str(), 0755), 0);
    ASSERT_EQ(symlink("mid", (root + "/link").c_str()), 0);
    EXPECT_FALSE(folder.IsEmpty());
    EXPECT_EQ(folder.CountFolders(), 1u);

    bool contains = true;
    ASSERT_EQ(folder.Contains("nope", &contains), IO::kOk);
    EXPECT_FALSE(contains);

    EXPECT_EQ(Listing(folder, 0), (std::vector<std::string>{"Alpha", "link", "mid/", "zeta"}));
    EXPECT_EQ(Listing(folder, 1), (std::vector<std::string>{"Alpha", "link/", "mid/", "zeta"}));

    int calls = 0;
    folder.Enumerate([](const IO::Folder&, const IO::Name&, bool,
                        void* arg) { return ++*static_cast<int*>(arg) < 2; },
                     0, 0, &calls);
    EXPECT_EQ(calls, 2);

    EXPECT_EQ(IO::Folder(At(root + "/zeta")).GetStatus(), IO::kErrNotAFolder);
}

TEST(Folder, UnusedNamesAndDelete) {
    krtest::TempFolder tmp;
    IO::Folder folder(tmp.Location());
    IO::Name name;
    ASSERT_EQ(folder.GenerateUnusedName(&name, "doc", ".txt"), IO::kOk);
    EXPECT_EQ(name.GetUniString(), "doc.txt");
    krtest::WriteFile(tmp.Sub("doc.txt"), "");
    krtest::WriteFile(tmp.Sub("doc-1.txt"), "");
    ASSERT_EQ(folder.GenerateUnusedName(&name, "doc", ".txt"), IO::kOk);
    EXPECT_EQ(name.GetUniString(), "doc-2.txt");

    ASSERT_EQ(mkdir(tmp.Sub("tree").c_str(), 0755), 0);
    ASSERT_EQ(mkdir(tmp.Sub("tree/deep").c_str(), 0755), 0);
    krtest::WriteFile(tmp.Sub("tree/deep/f"), "data");
    krtest::WriteFile(tmp.Sub("outside"), "keep");
    ASSERT_EQ(symlink(tmp.Sub("outside").c_str(), tmp.Sub("tree/link").c_str()), 0);

    // Names that would leave the folder are refused.
    EXPECT_EQ(folder.Delete("..", 0, 0), IO::kErrBadLocation);
    EXPECT_EQ(folder.Delete("tree/deep", 0, 0), IO::kErrBadLocation);
    EXPECT_EQ(folder.Delete("", 0, 0), IO::kErrNoName);

    EXPECT_EQ(folder.Delete("tree", 0, 0), IO::kOk);
    EXPECT_FALSE(krtest::Exists(tmp.Sub("tree")));
    EXPECT_EQ(krtest::ReadFile(tmp.Sub("outside")), "keep");  // links are removed, not followed
    EXPECT_EQ(folder.Delete("tree", 0, 0), IO::kErrNotFound);
}

TEST(FileSystem, TreesSizesAndDeleteAroundAHeldFile) {
    krtest::TempFolder tmp;
    const std::string root = tmp.Sub("r");
    ASSERT_EQ(IO::fileSystem.CreateFolderTree(At(root + "/x/y")), IO::kOk);
    EXPECT_EQ(IO::fileSystem.CreateFolderTree(At(root + "/x/y")), IO::kOk);
    krtest::WriteFile(root + "/x/file", "12345");
    krtest::WriteFile(root + "/x/y/held", "123");
    ASSERT_EQ(symlink((root + "/x/file").c_str(), (root + "/lnk").c_str()), 0);
    EXPECT_EQ(IO::fileSystem.CreateFolderTree(At(root + "/x/file")), IO::kErrNotAFolder);
    EXPECT_EQ(IO::fileSystem.CreateFolderTree(At(root + "/x/file/sub")), IO::kErrNotAFolder);

    std::uint64_t bytes = 0;
    ASSERT_EQ(IO::fileSystem.CountSize(At(root), &bytes), IO::kOk);
    EXPECT_EQ(bytes, 8u);
    EXPECT_EQ(IO::fileSystem.CountSize(At(tmp.Sub("none")), &bytes), IO::kErrNotFound);

    bool contains = false;
    ASSERT_EQ(IO::fileSystem.Contains(At(root + "/x/file"), &contains), IO::kOk);
    EXPECT_TRUE(contains);

    // A held file survives the delete of its tree; the rest goes.
    IO::File holder(At(root + "/x/y/held"));
    ASSERT_EQ(holder.Open(IO::kOpenHold), IO::kOk);
    EXPECT_EQ(IO::fileSystem.Delete(At(root), 0, 0), IO::kErrInUse);
    EXPECT_TRUE(krtest::Exists(root + "/x/y/held"));
    EXPECT_FALSE(krtest::Exists(root + "/x/file"));
    holder.Close();
    EXPECT_EQ(IO::fileSystem.Delete(At(root), 0, 0), IO::kOk);
    EXPECT_FALSE(krtest::Exists(root));
}

TEST(FileSystem, WriteFileAtomically) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("store.xml");
    ASSERT_EQ(IO::fileSystem.WriteFileAtomically(At(path), "first", 0600), IO::kOk);
    EXPECT_EQ(krtest::ReadFile(path), "first");
    EXPECT_EQ(krtest::ModeOf(path), 0600u);

    // A replacement is a new file: it does not inherit a looser mode.
    chmod(path.c_str(), 0644);
    ASSERT_EQ(IO::fileSystem.WriteFileAtomically(At(path), std::string("second\0x", 8)), IO::kOk);
    std::string data;
    ASSERT_EQ(IO::fileSystem.ReadWholeFile(At(path), &data), IO::kOk);
    EXPECT_EQ(data, std::string("second\0x", 8));
    EXPECT_EQ(krtest::ModeOf(path), 0600u);

    EXPECT_EQ(IO::fileSystem.ReadWholeFile(At(tmp.Sub("none")), &data), IO::kErrNotFound);
    EXPECT_EQ(IO::fileSystem.ReadWholeFile(tmp.Location(), &data), IO::kErrIsAFolder);

    EXPECT_EQ(IO::fileSystem.WriteFileAtomically(At(tmp.Sub("none/f")), "x"), IO::kErrNotFound);
    EXPECT_EQ(IO::fileSystem.WriteFileAtomically(tmp.Location(), "x"), IO::kErrIsAFolder);

    // No temporary file is left behind.
    EXPECT_EQ(Listing(IO::Folder(tmp.Location())), (std::vector<std::string>{"store.xml"}));
}
