// The resolver file replaced on disk: whole, never through a link, and left
// as it was when it cannot be written.
#include "ResolverFile.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

using namespace DeviceService;
namespace fs = std::filesystem;

std::string Contents(const fs::path& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

class ResolverFileTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/resolver-file-XXXXXX";
        m_dir = mkdtemp(pattern);
    }
    void TearDown() override { fs::remove_all(m_dir); }

    fs::path m_dir;
};

TEST_F(ResolverFileTest, ReplacesTheFileAndALinkButNotTheLinksTarget) {
    const fs::path resolver = m_dir / "resolv.conf";
    const fs::path target = m_dir / "target";
    std::ofstream(target) << "nameserver 1.1.1.1\n";
    fs::create_symlink(target, resolver);

    ASSERT_TRUE(ReplaceResolverFile(resolver.string(), {"10.99.0.1"}));
    EXPECT_FALSE(fs::is_symlink(resolver));
    EXPECT_EQ(Contents(resolver), ResolverText({"10.99.0.1"}));
    EXPECT_EQ(Contents(target), "nameserver 1.1.1.1\n");
    EXPECT_EQ(fs::status(resolver).permissions(), fs::perms(0644));
    ASSERT_TRUE(ReplaceResolverFile(resolver.string(), {}));
    EXPECT_EQ(Contents(resolver), ResolverText({}));
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir), fs::directory_iterator()), 2);
}

TEST_F(ResolverFileTest, LeavesTheFileWhenItCannotBeReplaced) {
    const fs::path missing = m_dir / "missing" / "resolv.conf";
    const Result<void> noDirectory = ReplaceResolverFile(missing.string(), {"10.99.0.1"});
    ASSERT_FALSE(noDirectory);
    EXPECT_NE(noDirectory.error().find("cannot create a file beside " + missing.string()),
              std::string::npos);

    // A directory in the file's place: the new file is written, the rename fails.
    const fs::path occupied = m_dir / "resolv.conf";
    fs::create_directory(occupied);
    std::ofstream(occupied / "kept") << "x";
    const Result<void> renamed = ReplaceResolverFile(occupied.string(), {"10.99.0.1"});
    ASSERT_FALSE(renamed);
    EXPECT_NE(renamed.error().find("cannot replace " + occupied.string()), std::string::npos);
    EXPECT_EQ(Contents(occupied / "kept"), "x");
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir), fs::directory_iterator()), 1);
}

} // namespace
