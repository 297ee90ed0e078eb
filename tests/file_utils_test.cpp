// The exported file functions, on real files under a temporary folder.
#include <YumoClientSdk/ymFileUtils.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/ymPropertyList.h"
#include "support/BinaryPlist.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

class FileUtils : public ::testing::Test {
protected:
    ymtest::TemporaryDirectory folder;
    std::string at(const std::string &name) const { return folder.path() + "/" + name; }

    // A bundle whose Info.plist holds the version (when given), in XML or binary form.
    std::string makeBundle(const std::string &name, const std::optional<std::string> &version, bool binary)
    {
        return ymtest::makeAppBundle(folder.path(), name, "com.example.app", version, "app", "/bin/sleep", binary);
    }
};

TEST_F(FileUtils, ExistenceCreationListingAndDeletion)
{
    ymtest::writeFile(at("file"), "x");
    const std::string file = at("file"), missing = at("missing");
    for (auto [path, exists, isFolder] :
         {std::tuple{file.c_str(), YES, NO}, {folder.path().c_str(), YES, YES}, {missing.c_str(), NO, NO}, {nullptr, NO, NO}}) {
        EXPECT_EQ(ymIsFileExist(path), exists) << (path ? path : "(null)");
        EXPECT_EQ(ymIsDirection(path), isFolder) << (path ? path : "(null)");
    }

    std::string nested = at("a/b/c");
    EXPECT_EQ(ymCreateDirection(nested.c_str()), YES);
    EXPECT_EQ(ymIsDirection(nested.c_str()), YES);
    EXPECT_EQ(ymCreateDirection(nested.c_str()), NO);  // already there: NO, yet it exists
    EXPECT_EQ(ymIsDirection(nested.c_str()), YES);
    EXPECT_EQ(ymCreateDirection(nullptr), NO);
    // A trailing slash names the same folder.
    EXPECT_EQ(ymCreateDirection(at("slashed/folder/").c_str()), YES);
    EXPECT_EQ(ymIsDirection(at("slashed/folder").c_str()), YES);

    ymtest::writeFile(nested + "/inside", "content");
    EXPECT_EQ(ymDeleteFile(at("a").c_str()), YES);  // with everything in it
    EXPECT_EQ(ymIsFileExist(at("a").c_str()), NO);
    EXPECT_EQ(ymDeleteFile(at("a").c_str()), NO);
    EXPECT_EQ(ymDeleteFile(nullptr), NO);

    EXPECT_EQ(ymCreateDirection(at("list").c_str()), YES);
    const char *const *empty = ymGetDirectoryItems(at("list").c_str());
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty[0], nullptr);

    ymtest::writeFile(at("list/one"), "1");
    EXPECT_EQ(ymCreateDirection(at("list/two").c_str()), YES);
    ymtest::writeFile(at("list/two/deeper"), "not listed");
    std::vector<std::string> names;
    for (const char *const *item = ymGetDirectoryItems(at("list").c_str()); *item; ++item)
        names.emplace_back(*item);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"one", "two"}));

    EXPECT_EQ(ymGetDirectoryItems(at("file").c_str()), nullptr);
    EXPECT_EQ(ymGetDirectoryItems(at("missing").c_str()), nullptr);
    EXPECT_EQ(ymGetDirectoryItems(nullptr), nullptr);
}

TEST_F(FileUtils, MovingReplacesTheDestination)
{
    ymtest::writeFile(at("source"), "new");
    ymtest::writeFile(at("destination"), "old");
    EXPECT_EQ(ymMoveFile(at("source").c_str(), at("destination").c_str()), YES);
    EXPECT_EQ(ymtest::readFile(at("destination")), "new");
    EXPECT_EQ(ymIsFileExist(at("source").c_str()), NO);

    // A missing source leaves the destination alone.
    EXPECT_EQ(ymMoveFile(at("source").c_str(), at("destination").c_str()), NO);
    EXPECT_EQ(ymtest::readFile(at("destination")), "new");
    EXPECT_EQ(ymMoveFile(nullptr, at("destination").c_str()), NO);
    EXPECT_EQ(ymMoveFile(at("destination").c_str(), nullptr), NO);

    // Folders move too, onto an existing folder.
    EXPECT_EQ(ymCreateDirection(at("dirA/x").c_str()), YES);
    EXPECT_EQ(ymCreateDirection(at("dirB/y").c_str()), YES);
    EXPECT_EQ(ymMoveFile(at("dirA").c_str(), at("dirB").c_str()), YES);
    EXPECT_EQ(ymIsDirection(at("dirB/x").c_str()), YES);
    EXPECT_EQ(ymIsFileExist(at("dirB/y").c_str()), NO);
}

TEST_F(FileUtils, FoldersMoveAcrossFileSystemsWithTheirModes)
{
    // /dev/shm is a file system of its own (tmpfs) wherever the tests run; without one there is
    // nothing to cross.
    struct stat here, there;
    ASSERT_EQ(stat(folder.path().c_str(), &here), 0);
    if (stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "no second file system at /dev/shm";
    ymtest::TemporaryDirectory other("/dev/shm");

    EXPECT_EQ(ymCreateDirection(at("tree/private").c_str()), YES);
    ymtest::writeFile(at("tree/private/secret"), "s");
    ymtest::writeFile(at("tree/tool"), "#!/bin/sh\n");
    ASSERT_EQ(symlink("private/secret", at("tree/link").c_str()), 0);
    chmod(at("tree/private/secret").c_str(), 0600);
    chmod(at("tree/tool").c_str(), 0755);
    chmod(at("tree/private").c_str(), 0500);  // read-only: the copy must still fill it
    std::string destination = other.path() + "/moved";
    ymtest::writeFile(destination, "replaced");

    EXPECT_EQ(ymMoveFile(at("tree").c_str(), destination.c_str()), YES);
    EXPECT_EQ(ymIsFileExist(at("tree").c_str()), NO);
    EXPECT_EQ(ymtest::readFile(destination + "/private/secret"), "s");
    auto modeOf = [](const std::string &path) {
        struct stat status;
        return lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
    };
    EXPECT_EQ(modeOf(destination + "/private") & 07777, 0500u);
    EXPECT_EQ(modeOf(destination + "/private/secret") & 07777, 0600u);
    EXPECT_EQ(modeOf(destination + "/tool") & 07777, 0755u);
    EXPECT_TRUE(S_ISLNK(modeOf(destination + "/link")));
    EXPECT_EQ(ymtest::readFile(destination + "/link"), "s");
    chmod((destination + "/private").c_str(), 0700);  // so that the folder can be cleaned away

    // A copy that cannot be made (no descriptor is left for it) fails, keeps the original and
    // leaves no descriptor of its own open. (Not with a sanitizer: its runtime needs descriptors.)
    ymtest::writeFile(at("single"), "1");
    if (!ymtest::kSanitizerBuild) {
        ymtest::DescriptorsTakenButOne full;  // enough to open the original, not its copy
        ASSERT_TRUE(full.taken());
        EXPECT_EQ(ymMoveFile(at("single").c_str(), (other.path() + "/single").c_str()), NO);
        int spare = open("/dev/null", O_RDONLY | O_CLOEXEC);
        EXPECT_GE(spare, 0);
        close(spare);
    }
    EXPECT_EQ(ymtest::readFile(at("single")), "1");
}

TEST_F(FileUtils, CreatingFilesAndReadingSizes)
{
    EXPECT_EQ(ymCreateFile(at("text").c_str(), "h\xc3\xa9llo"), YES);
    EXPECT_EQ(ymtest::readFile(at("text")), "h\xc3\xa9llo");
    EXPECT_EQ(ymGetFileSizeFromPath(at("text").c_str()), 6);
    EXPECT_EQ(ymCreateFile(at("text").c_str(), "replaced"), YES);
    EXPECT_EQ(ymtest::readFile(at("text")), "replaced");
    EXPECT_EQ(ymCreateFile(at("empty").c_str(), nullptr), YES);
    EXPECT_EQ(ymGetFileSizeFromPath(at("empty").c_str()), 0);
    EXPECT_EQ(ymIsFileExist(at("empty").c_str()), YES);
    EXPECT_EQ(ymCreateFile(nullptr, "x"), NO);
    EXPECT_EQ(ymCreateFile(at("no/such/folder/file").c_str(), "x"), NO);

    EXPECT_EQ(ymGetFileSizeFromPath(at("missing").c_str()), 0);
    EXPECT_EQ(ymGetFileSizeFromPath(nullptr), 0);
    // Beyond 2 GiB the size is cut to 32 bits: 2^32 + 5 bytes read as 5 (a sparse file).
    ymtest::writeFile(at("huge"), "");
    ASSERT_EQ(truncate(at("huge").c_str(), (1LL << 32) + 5), 0);
    EXPECT_EQ(ymGetFileSizeFromPath(at("huge").c_str()), 5);
    ASSERT_EQ(truncate(at("huge").c_str(), (1LL << 31) + 1), 0);
    EXPECT_EQ(ymGetFileSizeFromPath(at("huge").c_str()), INT32_MIN + 1);
}

TEST_F(FileUtils, BundleVersionFromXmlOrBinaryInfoPlist)
{
    EXPECT_STREQ(ymGetFileVersion(makeBundle("xml.app", "5.6.0", false).c_str()), "5.6.0");
    EXPECT_STREQ(ymGetFileVersion((makeBundle("slash.app", "7", false) + "/").c_str()), "7");
    EXPECT_STREQ(ymGetFileVersion(makeBundle("nokey.app", std::nullopt, true).c_str()), "");

    EXPECT_EQ(ymCreateDirection(at("bare.app").c_str()), YES);
    EXPECT_STREQ(ymGetFileVersion(at("bare.app").c_str()), "");
    EXPECT_EQ(ymCreateDirection(at("junk.app/Contents").c_str()), YES);
    ymtest::writeFile(at("junk.app/Contents/Info.plist"), "<?xml version=\"1.0\"?><plist><dict><key>");
    EXPECT_STREQ(ymGetFileVersion(at("junk.app").c_str()), "");
    EXPECT_STREQ(ymGetFileVersion(nullptr), "");
    // A version written as a number is read as its text.
    ymtest::writeFile(at("junk.app/Contents/Info.plist"), "<plist><dict><key>CFBundleVersion</key><real>5.5</real></dict></plist>");
    EXPECT_STREQ(ymGetFileVersion(at("junk.app").c_str()), "5.5");

    // A key holding a zero character (the parser would abort on it) makes no property list: in XML
    // a raw zero byte or a reference to 0 (after one to another character), in any notation...
    const std::string version = "<plist><dict><key>CFBundleVersion</key><string>1&#65;</string>";
    for (const std::string &zero : {std::string("\0", 1), std::string("&#0;"), std::string("&#x00;"), std::string("&#X0;")}) {
        ymtest::writeFile(at("junk.app/Contents/Info.plist"), version + "<key>K" + zero + "</key><string>x</string></dict></plist>");
        EXPECT_STREQ(ymGetFileVersion(at("junk.app").c_str()), "") << zero;
    }
    // ...but "&#0;" that is no reference, in a comment or a CDATA section, is only text.
    ymtest::writeFile(at("junk.app/Contents/Info.plist"), version + "<!-- &#0; --><key><![CDATA[K&#0;]]></key>"
                                                          "<string><![CDATA[&#0;]]></string></dict></plist>");
    EXPECT_STREQ(ymGetFileVersion(at("junk.app").c_str()), "1A");
}

TEST_F(FileUtils, BinaryInfoPlistsOfEveryWidthAndTablesThatDoNotHold)
{
    const std::string bundle = makeBundle("width.app", "1", true);
    const std::string info = bundle + "/Contents/Info.plist";
    auto versionOf = [&](const std::string &bytes) {
        ymtest::writeFile(info, bytes);
        return std::string(ymGetFileVersion(bundle.c_str()));
    };
    const std::vector<std::pair<std::string, std::string>> entries = {{"CFBundleIdentifier", "com.example.app"},
                                                                      {"CFBundleVersion", "5.6.0"}};
    // A key with a zero character inside (the parser would abort on it) is found whatever the widths.
    const std::vector<std::pair<std::string, std::string>> zero = {{"CFBundleVersion", "5.6.0"},
                                                                   {std::string("KKKKK\0KKKKKKKKKKKKKK", 20), "x"}};
    for (int offsetSize : {1, 2, 4, 8})
        for (int referenceSize : {1, 2, 4, 8}) {
            SCOPED_TRACE(std::to_string(offsetSize) + "-byte offsets, " + std::to_string(referenceSize) + "-byte references");
            EXPECT_EQ(versionOf(ymtest::makeBinaryPlist(entries, offsetSize, referenceSize).bytes), "5.6.0");
            EXPECT_EQ(versionOf(ymtest::makeBinaryPlist(zero, offsetSize, referenceSize).bytes), "");
        }

    // Tables that do not hold: each is refused, none read past the end or aborts.
    const ymtest::BinaryPlist good = ymtest::makeBinaryPlist(entries, 2, 1);  // read whole above
    auto changed = [&](size_t at, const std::string &bytes) { return std::string(good.bytes).replace(at, bytes.size(), bytes); };
    const size_t objectsField = good.trailer + 8, topField = good.trailer + 16, tableField = good.trailer + 24;
    const std::vector<std::pair<std::string, std::string>> broken = {
        {"cut inside the trailer", good.bytes.substr(0, good.bytes.size() - 1)},
        {"cut inside the offset table", good.bytes.substr(0, good.offsetTable + 3) + good.bytes.substr(good.trailer)},
        {"more objects than the table holds", changed(objectsField + 7, "\x09")},
        {"the table overlapping the trailer", changed(tableField + 7, std::string(1, static_cast<char>(good.trailer - 2)))},
        {"the table before the header's end", changed(tableField + 7, "\x04")},
        {"an object inside the offset table", changed(good.offsetTable + 2, std::string("\0", 1) + static_cast<char>(good.offsetTable))},
        {"an object past the end", changed(good.offsetTable + 2, "\x7f\x7f")},
        {"a top object that is not there", changed(topField + 7, "\x05")},
        {"an offset width of 3", changed(good.trailer + 6, "\x03")},
        {"a reference width of 0", changed(good.trailer + 7, std::string("\0", 1))},
    };
    for (const auto &[what, bytes] : broken)
        EXPECT_EQ(versionOf(bytes), "") << what;
}

}  // namespace
