#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "HostSession.h"
#include "save/files.h"
#include "support/TempFolder.h"

namespace kv::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kLeftover = ".0123456789abcdef.kvtmp";

void write(const std::string& path, std::string_view text) {
  host::writeFileAtomically(path, std::span(&text, 1));
}

/// A session for the errors, and a folder of its own.
class Files : public HostSession {
 protected:
  std::string at(const std::string& name) const { return folder.path(name); }

  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename());
    }
    return names;
  }

  TempFolder folder;
};

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0);
  return status.st_mode & 0777;
}

std::string reasonOf(std::errc reason) { return std::make_error_code(reason).message(); }

TEST_F(Files, AreWrittenFromPiecesAndReplaced) {
  const std::string_view pieces[] = {"first ", "", std::string_view("\0second", 7)};
  host::writeFileAtomically(at("a.kv"), pieces);
  EXPECT_EQ(bytesOf(at("a.kv")), std::string("first \0second", 13));
  host::writeFileAtomically(at("a.kv"), {});
  EXPECT_EQ(bytesOf(at("a.kv")), "");
  const std::string large(5'000'000, 'x');
  write(at("a.kv"), large);
  EXPECT_EQ(bytesOf(at("a.kv")), large);
  EXPECT_THAT(names(), ::testing::ElementsAre("a.kv"));
}

TEST_F(Files, KeepTheirPermissionsAndNewOnesFollowTheUmask) {
  const mode_t before = ::umask(027);
  write(at("new"), "new");
  EXPECT_EQ(modeOf(at("new")), 0640u);
  ASSERT_EQ(::chmod(at("new").c_str(), 0606), 0);
  write(at("new"), "again");
  EXPECT_EQ(modeOf(at("new")), 0606u);
  ::umask(before);
}

TEST_F(Files, AreReachedThroughSymbolicLinks) {
  fs::create_directory(at("folder"));
  fs::create_symlink("folder/a.kv", at("link"));
  fs::create_symlink("link", at("link to link"));
  write(at("link to link"), "through links");
  EXPECT_TRUE(fs::is_symlink(at("link to link")) && fs::is_symlink(at("link")));
  EXPECT_EQ(bytesOf(at("folder/a.kv")), "through links");
  write(at("link"), "again");
  EXPECT_EQ(bytesOf(at("link to link")), "again");
}

TEST_F(Files, OnlyWhatAKilledSaveOfTheSameTargetLeftIsRemoved) {
  const std::string held = at("a.kv.fedcba9876543210.kvtmp");
  const std::vector<std::string> kept = {"a.kv.b" + std::string(kLeftover),
                                         "b.kv" + std::string(kLeftover), "a.kv.1234.kvtmp",
                                         "a.kv.0123456789abcdeX.kvtmp", "a.kv.0123456789abcdef"};
  for (const std::string& name : kept) {
    std::ofstream(at(name)) << "not ours";
  }
  std::ofstream(at("a.kv") + kLeftover) << "left over";
  const int running = ::open(held.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  ASSERT_EQ(::flock(running, LOCK_EX), 0);
  write(at("a.kv"), "text");
  std::vector<std::string> expected = kept;
  expected.insert(expected.end(), {"a.kv", fs::path(held).filename()});
  EXPECT_THAT(names(), ::testing::UnorderedElementsAreArray(expected));
  ::close(running);
  write(at("a.kv"), "text");
  EXPECT_FALSE(fs::exists(held));
}

TEST_F(Files, MayHaveNamesAsLongAsTheSystemAllows) {
  const std::string name(255, 'n');
  write(at(name), "text");
  std::ofstream(at(name.substr(0, 255 - std::string(kLeftover).size()) + kLeftover)) << "left";
  write(at(name), "again");
  EXPECT_THAT(names(), ::testing::ElementsAre(name));
}

TEST_F(Files, ThatCantBeWrittenAreLeftAsTheyAre) {
  fs::create_directory(at("folder"));
  ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0666), 0);
  fs::create_symlink("ring", at("ring"));
  const std::pair<std::string, std::string> rows[] = {
      {"", reasonOf(std::errc::no_such_file_or_directory)},
      {at("none/a.kv"), reasonOf(std::errc::no_such_file_or_directory)},
      {at("none/"), reasonOf(std::errc::no_such_file_or_directory)},
      {at("pipe/a.kv"), reasonOf(std::errc::not_a_directory)},
      {at("ring"), reasonOf(std::errc::too_many_symbolic_link_levels)},
      {at(std::string(256, 'n')), reasonOf(std::errc::filename_too_long)},
      {at(std::string("a\0b", 3)), reasonOf(std::errc::invalid_argument)},
      {at("folder"), "it isn't a regular file"},
      {at("pipe"), "it isn't a regular file"},
      {"/dev/null", "it isn't a regular file"},
  };
  const std::vector<std::string> before = names();
  for (const auto& [path, reason] : rows) {
    const ErrorRecord error = errorOf([&] { write(path, "text"); });
    EXPECT_EQ(error.identifier, "KALVEX:save:CannotWrite");
    EXPECT_THAT(error.arguments, ::testing::ElementsAre(path, reason));
  }
  EXPECT_THAT(names(), ::testing::UnorderedElementsAreArray(before));
}

/// Root may write to everything, so the test runs as another user for a while.
class Unprivileged {
 public:
  Unprivileged() { EXPECT_TRUE(::geteuid() != 0 || ::seteuid(kNobody) == 0); }
  ~Unprivileged() { EXPECT_EQ(::seteuid(::getuid()), 0); }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;

 private:
  static constexpr uid_t kNobody = 65534;
};

TEST_F(Files, ThatAreProtectedFromWritingAreRefused) {
  write(at("a.kv"), "old");
  ASSERT_EQ(::chmod(at("a.kv").c_str(), 0444), 0);
  ASSERT_EQ(::chmod(folder.path().c_str(), 0777), 0);
  const Unprivileged user;
  EXPECT_EQ(
      failure([&] { write(at("a.kv"), "new"); }),
      "KALVEX:save:CannotWrite | " + at("a.kv") + " | " + reasonOf(std::errc::permission_denied));
  EXPECT_EQ(bytesOf(at("a.kv")), "old");
}

TEST_F(Files, ThatCantBeReadAreNamed) {
  ASSERT_EQ(::mkfifo(at("pipe").c_str(), 0666), 0);
  const std::pair<std::string, std::string> rows[] = {
      {"", reasonOf(std::errc::no_such_file_or_directory)},
      {at("none"), reasonOf(std::errc::no_such_file_or_directory)},
      {at(std::string("pipe\0", 5)), reasonOf(std::errc::invalid_argument)},
      {at("."), "it isn't a regular file"},
      {at("pipe"), "it isn't a regular file"},
  };
  for (const auto& [path, reason] : rows) {
    const ErrorRecord error = errorOf([&] { bytesOf(path); });
    EXPECT_EQ(error.identifier, "KALVEX:load:CannotRead");
    EXPECT_THAT(error.arguments, ::testing::ElementsAre(path, reason));
  }
}

}  // namespace
}  // namespace kv::test
