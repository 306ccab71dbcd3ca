#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "HostSession.h"
#include "save/files.h"
#include "support/SystemCalls.h"
#include "support/TempFolder.h"

// What a save leaves on a disk whose power fails. The file operations of one save are recorded and
// replayed on a model of a disk: data that wasn't synced may be there in part or be zeros, and
// changes of names that weren't synced may be there or not, each on its own, after any operation.
// The model is that of Pillai et al., "All File Systems Are Not Created Equal" (OSDI 2014).
namespace kv::test {

namespace {

namespace fs = std::filesystem;

/// A file as a model disk holds it: what is safe, and the writes since.
struct DiskFile {
  std::string safe;
  std::vector<std::string> unsynced;

  std::string whole() const {
    std::string bytes = safe;
    for (const std::string& write : unsynced) {
      bytes += write;
    }
    return bytes;
  }

  /// All that may be found after the power has failed.
  std::set<std::string> remains() const {
    std::set<std::string> found{safe};
    std::string bytes = safe;
    for (const std::string& write : unsynced) {
      found.insert(bytes + write.substr(0, write.size() / 2));
      found.insert(bytes + std::string(write.size(), '\0'));
      found.insert(std::string(bytes.size(), '\0') + write);
      bytes += write;
      found.insert(bytes);
    }
    return found;
  }
};

/// A disk with one folder. Names map to files by number; 0 is no file.
class ModelDisk {
 public:
  explicit ModelDisk(const std::map<std::string, std::string>& files) {
    for (const auto& [name, bytes] : files) {
      files_.push_back({bytes, {}});
      names_[name] = files_.size();
    }
    safeNames_ = names_;
  }

  void apply(const FileCall& call) {
    if (call.result < 0) {
      return;
    }
    if (call.name == "openat" && (call.flags & O_CREAT) != 0) {
      files_.emplace_back();
      open_[call.descriptor] = files_.size();
      rename(call.path, files_.size());
    } else if (call.name == "openat") {
      const auto found = names_.find(call.path);
      open_[call.descriptor] = found != names_.end() ? found->second : 0;
    } else if (call.name == "write" && fileAt(call.descriptor) != nullptr) {
      fileAt(call.descriptor)
          ->unsynced.push_back(call.data.substr(0, static_cast<std::size_t>(call.result)));
    } else if (call.name == "fsync") {
      sync(call.descriptor);
    } else if (call.name == "rename") {
      const std::size_t moved = names_[call.path];
      rename(call.path, 0);
      rename(call.target, moved);
    } else if (call.name == "unlink") {
      rename(call.path, 0);
    }
  }

  /// All that `name` may be found to hold after the power has failed; "" also for no file.
  std::set<std::string> remainsOf(const std::string& name) const {
    std::set<std::size_t> candidates{numberOf(safeNames_, name)};
    for (const auto& [changed, file] : changes_) {
      if (changed == name) {
        candidates.insert(file);
      }
    }
    std::set<std::string> found;
    for (const std::size_t file : candidates) {
      found.merge(file == 0 ? std::set<std::string>{""} : files_[file - 1].remains());
    }
    return found;
  }

 private:
  static std::size_t numberOf(const std::map<std::string, std::size_t>& names,
                              const std::string& name) {
    const auto found = names.find(name);
    return found == names.end() ? 0 : found->second;
  }

  DiskFile* fileAt(int descriptor) {
    const auto found = open_.find(descriptor);
    return found == open_.end() || found->second == 0 ? nullptr : &files_[found->second - 1];
  }

  void rename(const std::string& name, std::size_t file) {
    names_[name] = file;
    changes_.emplace_back(name, file);
  }

  /// Of a file, makes its data safe; of the folder, all names.
  void sync(int descriptor) {
    if (DiskFile* file = fileAt(descriptor)) {
      *file = {file->whole(), {}};
    } else {
      safeNames_ = names_;
      changes_.clear();
    }
  }

  std::vector<DiskFile> files_;
  std::map<std::string, std::size_t> names_;
  std::map<std::string, std::size_t> safeNames_;
  std::vector<std::pair<std::string, std::size_t>> changes_;  ///< of names, not safe yet
  std::map<int, std::size_t> open_;
};

class PowerLoss : public HostSession {
 protected:
  void SetUp() override {
    if (!canTrace()) {
      GTEST_SKIP() << "processes can't be traced here";
    }
  }

  void save(const std::string& bytes) const {
    const std::string_view pieces[] = {std::string_view(bytes).substr(0, bytes.size() / 3),
                                       std::string_view(bytes).substr(bytes.size() / 3)};
    host::writeFileAtomically(path, pieces);
  }

  std::string standing() const { return fs::exists(path) ? bytesOf(path) : ""; }

  std::string saveObserved(const std::string& bytes, const CallObserver& observer) {
    return *runTraced([&] { return failure([&] { save(bytes); }); }, {}, observer).outcome;
  }

  TempFolder folder;
  const std::string path = folder.path("a.kv");
  const std::string oldBytes = std::string(40'000, 'o');
  const std::string newBytes = std::string(50'000, 'n');
};

TEST_F(PowerLoss, AfterAnyFileOperationLeavesTheOldFileOrTheNewOne) {
  for (const std::string& before : {oldBytes, std::string()}) {
    fs::remove(path);
    if (!before.empty()) {
      save(before);
    }
    ModelDisk disk(before.empty() ? std::map<std::string, std::string>{}
                                  : std::map<std::string, std::string>{{path, before}});
    std::size_t operations = 0;
    std::size_t states = 0;
    const auto replay = [&](const FileCall& call) {
      disk.apply(call);
      ++operations;
      const std::set<std::string> remains = disk.remainsOf(path);
      states += remains.size();
      for (const std::string& bytes : remains) {
        EXPECT_TRUE(bytes == before || bytes == newBytes)
            << "a power loss after " << call.name << " leaves " << bytes.size() << " other bytes";
      }
    };
    ASSERT_EQ(saveObserved(newBytes, {.after = replay}), "no error");
    EXPECT_TRUE(disk.remainsOf(path) == std::set{newBytes}) << "a finished save is safe";
    std::printf("power-loss: %zu file operations, %zu states: the old or the new file\n",
                operations, states);
  }
}

TEST_F(PowerLoss, SavesOfOneTargetAtTheSameTimeLeaveEachOthersFilesAlone) {
  for (int moment = 0; moment >= 0;) {
    int calls = 0;
    const auto saveBetween = [&](const FileCall&) {
      if (calls++ == moment) {
        save(oldBytes);
      }
    };
    ASSERT_EQ(saveObserved(newBytes, {.before = saveBetween}), "no error") << "at " << moment;
    EXPECT_TRUE(standing() == oldBytes || standing() == newBytes) << "at " << moment;
    moment = calls > moment ? moment + 1 : -1;
  }
}

TEST_F(PowerLoss, AFileThatIsThereAlreadyUnderTheTemporaryNameIsNotWrittenTo) {
  const std::string victim = folder.write("victim", "untouched");
  const auto plantLink = [&](const FileCall& call) {
    if (call.name == "openat" && (call.flags & O_CREAT) != 0) {
      fs::create_symlink(victim, call.path);
    }
  };
  EXPECT_THAT(saveObserved(newBytes, {.before = plantLink}),
              ::testing::StartsWith("KALVEX:save:CannotWrite"));
  EXPECT_EQ(bytesOf(victim), "untouched");
}

TEST_F(PowerLoss, ALinkThatIsNamedAsALeftoverIsNotFollowed) {
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0666), 0);
  const std::string link = path + ".0123456789abcdef.kvtmp";
  fs::create_symlink("pipe", link);
  save(newBytes);
  EXPECT_TRUE(fs::is_symlink(link));
}

}  // namespace
}  // namespace kv::test
