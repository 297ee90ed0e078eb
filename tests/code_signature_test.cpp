// Code signatures: the signing tool's command line and answer, and installer packages' certificate
// chains, on archives and certificates the tests make themselves.
#include <YumoClientSdk/ymAppHelper.h>
#include <filesystem>
#include <gtest/gtest.h>

#include "support/SignedPackage.h"
#include "support/Processes.h"
#include "support/TestSupport.h"

namespace {

const std::string kInstaller = "Developer ID Installer: Yumocorp (Q4W7N2R8TX)";
const std::string kIntermediate = "Developer ID Certification Authority";
const std::string kRoot = "Apple Root CA";

class PackageSignature : public ::testing::Test {
protected:
    // Writes an archive whose first signature holds the certificates and checks it.
    bool check(const std::vector<std::string> &certificateTexts, const std::string &element = "signature")
    {
        return checkArchive(ymtest::makeXarArchive({{element, "RSA", certificateTexts}}));
    }
    bool checkArchive(const std::string &bytes)
    {
        std::string path = folder.path() + "/package " + std::to_string(++written) + ".pkg";
        ymtest::writeFile(path, bytes);
        return ymAppHelper::sharedInstance()->checkCodeSignForYumoPkg(path);
    }
    // A chain of certificates with these names, as base64 texts.
    static std::vector<std::string> chain(const std::vector<std::string> &names)
    {
        std::vector<std::string> texts;
        for (const std::string &certificate : ymtest::makeCertificateChain(names))
            texts.push_back(ymtest::base64(certificate));
        return texts;
    }

    ymtest::TemporaryDirectory folder;
    int written = 0;
};

TEST_F(PackageSignature, ChainsAreJudgedByTheFirstAndThirdNamesOfTheFirstSignature)
{
    ymtest::CapturedStderr log;
    EXPECT_TRUE(check(chain({kInstaller, kIntermediate, kRoot})));
    EXPECT_TRUE(check(chain({kInstaller, kIntermediate, kRoot, "Another Root"})));
    EXPECT_FALSE(check(chain({kInstaller, kRoot})));  // two are too few
    EXPECT_FALSE(check(chain({kInstaller, kIntermediate, "Other CA", kRoot})));
    EXPECT_FALSE(check(chain({"Developer ID Installer: yumocorp (Q4W7N2R8TX)", kIntermediate, kRoot})));
    EXPECT_FALSE(check(chain({kInstaller + " ", kIntermediate, kRoot})));
    EXPECT_FALSE(check(chain({kInstaller, kIntermediate, "apple root ca"})));
    EXPECT_EQ(ymtest::countLinesContaining(log.text(), ") -[ymAppHelper checkCodeSignForYumoPkg:]"), 7);
    EXPECT_FALSE(check(chain({kRoot, kIntermediate, kRoot})));        // the root is not the maker
    EXPECT_FALSE(check(chain({kInstaller, kIntermediate, kInstaller})));  // nor the maker a root
    // A certificate without a common name: the signer's and the root's are required, the middle
    // one is never read.
    EXPECT_FALSE(check(chain({"", kIntermediate, kRoot})));
    EXPECT_TRUE(check(chain({kInstaller, "", kRoot})));
    EXPECT_FALSE(check(chain({kInstaller, kIntermediate, ""})));

    // Only the first signature counts, whichever element it is.
    std::vector<std::string> good = chain({kInstaller, kIntermediate, kRoot}), bad = chain({"Someone Else", kIntermediate, kRoot});
    EXPECT_TRUE(checkArchive(ymtest::makeXarArchive({{"signature", "RSA", good}, {"x-signature", "CMS", bad}})));
    EXPECT_FALSE(checkArchive(ymtest::makeXarArchive({{"x-signature", "CMS", bad}, {"signature", "RSA", good}})));
    EXPECT_TRUE(check(good, "x-signature"));
}

TEST_F(PackageSignature, CertificatesAndFilesThatDoNotParse)
{
    std::vector<std::string> der = ymtest::makeCertificateChain({kInstaller, kIntermediate, kRoot});
    std::string junk = ymtest::base64("not a certificate");
    // A certificate that does not parse takes the place of the one before it again: with the
    // intermediate broken, the root is still third; with the root broken, the intermediate is.
    EXPECT_TRUE(check({ymtest::base64(der[0]), junk, ymtest::base64(der[2])}));
    EXPECT_FALSE(check({ymtest::base64(der[0]), ymtest::base64(der[1]), junk}));
    EXPECT_FALSE(check({junk, ymtest::base64(der[1]), ymtest::base64(der[2])}));
    // Base64 that does not decode ends the check.
    EXPECT_FALSE(check({ymtest::base64(der[0]), "!!not base64!!", ymtest::base64(der[2])}));
    EXPECT_FALSE(check({ymtest::base64(der[0]), ymtest::base64(der[1]), ymtest::base64(der[2]) + "A"}));
    // Padding in the middle is not base64 either: decoded, it would pass for a broken certificate.
    EXPECT_FALSE(check({ymtest::base64(der[0]), "YQ==YQ==", ymtest::base64(der[2])}));
    // A certificate cut short, and one with bytes after it.
    EXPECT_FALSE(check({ymtest::base64(der[0].substr(0, der[0].size() / 2)), ymtest::base64(der[1]), ymtest::base64(der[2])}));
    EXPECT_FALSE(check({ymtest::base64(der[0] + "x"), ymtest::base64(der[1]), ymtest::base64(der[2])}));

    EXPECT_FALSE(checkArchive(ymtest::makeXarArchive({})));                  // unsigned
    EXPECT_FALSE(check({}));                                                   // signed, no certificates
    EXPECT_FALSE(checkArchive("plain text, not an archive"));
    EXPECT_FALSE(ymAppHelper::sharedInstance()->checkCodeSignForYumoPkg(folder.path() + "/missing.pkg"));
    EXPECT_FALSE(ymAppHelper::sharedInstance()->checkCodeSignForYumoPkg(std::nullopt));

    std::string valid = ymtest::makeXarArchive({{"signature", "RSA", chain({kInstaller, kIntermediate, kRoot})}});
    ASSERT_TRUE(checkArchive(valid));
    EXPECT_FALSE(checkArchive(valid.substr(0, 20)));                           // truncated header
    EXPECT_FALSE(checkArchive(valid.substr(0, 40)));                           // truncated table of contents
    EXPECT_FALSE(checkArchive(ymtest::makeXarArchive({{"signature", "RSA", {"AAAA"}}}, false)));  // does not inflate
    std::string lying = valid;
    lying[23] = static_cast<char>(lying[23] + 1);                              // wrong uncompressed size
    EXPECT_FALSE(checkArchive(lying));
    std::string huge = valid;
    huge[8] = '\x7f';                                                          // compressed size past the end
    EXPECT_FALSE(checkArchive(huge));
}

// The signing tool is played by a script, seen only inside a private mount namespace (where ymctl
// runs): it writes its arguments to a file and exits with the status the test chooses.
TEST(AppSignature, AnswerIsTheSigningToolsExitStatus)
{
    EXPECT_EQ(ymAppHelper::codeSignCommandLine("/A.app"), "/usr/bin/codesign -v --verbose=1  -R=\"anchor apple generic and "
                                                          "certificate leaf[subject.OU] = Q4W7N2R8TX\" \"/A.app\"");
    EXPECT_FALSE(ymAppHelper::sharedInstance()->checkAppCodeSign(std::string()));  // runs nothing
    EXPECT_FALSE(ymAppHelper::sharedInstance()->checkAppCodeSign(std::nullopt));
    ymtest::TemporaryHome home;
    const std::string overlay = home.path();
    std::filesystem::create_directories(overlay + "/upper");
    std::filesystem::create_directories(overlay + "/work");
    ymtest::writeFile(overlay + "/upper/codesign",
                      "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > \"$CODESIGN_ARGUMENTS\"\n"
                      "exit \"$(cat \"$CODESIGN_STATUS\")\"\n");
    std::filesystem::permissions(overlay + "/upper/codesign", std::filesystem::perms(0755));
    setenv("CODESIGN_ARGUMENTS", (overlay + "/arguments").c_str(), 1);
    setenv("CODESIGN_STATUS", (overlay + "/status").c_str(), 1);
    auto runInNamespace = [&](const std::string &path) -> std::optional<std::string> {
        std::string script = "mount -t overlay overlay -o lowerdir=/usr/bin,upperdir='" + overlay + "/upper',workdir='" +
                             overlay + "/work' /usr/bin && exec \"$0\" --json verify-app \"$1\"";
        ymtest::ChildProcess peer("/usr/bin/unshare", {"-m", "--propagation", "private", "/bin/sh", "-c", script,
                                                       ymtest::toolProgram("ymctl"), path});
        return peer.readLine();
    };
    const std::string arguments = "-v\n--verbose=1\n-R=anchor apple generic and certificate leaf[subject.OU] = Q4W7N2R8TX\n";
    ymtest::writeFile(overlay + "/status", "0");
    std::optional<std::string> answer = runInNamespace("/Applications/My App.app");
    if (!answer)
        GTEST_SKIP() << "no private mount namespace here (needs root)";
    EXPECT_EQ(answer, R"({"signed":true})");
    EXPECT_EQ(ymtest::readFile(overlay + "/arguments"), arguments + "/Applications/My App.app\n");
    for (const char *status : {"1", "3", "127"}) {  // unsigned, failing the requirement, no such tool
        ymtest::writeFile(overlay + "/status", status);
        EXPECT_EQ(runInNamespace("/Applications/My App.app"), R"({"signed":false})") << status;
    }
    // A quote in the path is not escaped: the shell sees another command line.
    ymtest::writeFile(overlay + "/status", "0");
    EXPECT_EQ(runInNamespace("/x/My \"Quoted\" App.app"), R"({"signed":true})");
    EXPECT_EQ(ymtest::readFile(overlay + "/arguments"), arguments + "/x/My Quoted App.app\n");
}

}  // namespace
