#include <gtest/gtest.h>

#include "settings/memory_disk.h"

// Interrupted saves: the process is killed, or the power fails, before each step. The next start
// must not lose anything that was saved earlier.
namespace settings {
namespace {

Settings Record(const wchar_t* profile, const wchar_t* connectionId) {
  Settings settings;
  settings.engineerId = L"ENG-12345678";
  settings.siteProfiles.push_back({L"kept", L"http://h:1", L"D", L"key", L"ALL", {}});
  settings.siteProfiles.push_back({profile, L"http://h:1", L"D", profile, L"ALL", {}});
  settings.connectionId = connectionId;
  if (!settings.connectionId.empty()) {
    settings.granted = {connectionId, L"http://granted:1", L"ENG-1", {L"10.0.0.0/8"}};
  }
  return settings;
}

struct KilledSave {
  const char* name;
  std::map<std::wstring, std::string> before;  // the files
  Settings known;                              // as loaded from them
};

// A damaged file whose first object can still be read.
constexpr char kReadableInPart[] = R"({"engineerId":"ENG-12345678","deviceName":"name"}]})";

std::vector<KilledSave> KilledSaves() {
  const Settings old = Record(L"old", L"");
  const Settings held = Record(L"old", L"c1");
  Settings inPart;
  inPart.engineerId = L"ENG-12345678";
  inPart.deviceName = inPart.profileName = L"name";
  const std::string bytes = FileBytes(old);
  const std::string grant = text::ToUtf8(WriteGrantedConnection(held.granted));
  return {
      {"as this version leaves it", {{kPath, bytes}, {kLastPath, bytes}}, old},
      {"of a version without a second copy", {{kPath, bytes}}, old},
      {"a second copy from before", {{kPath, bytes}, {kLastPath, "{}"}}, old},
      {"emptied by the last end", {{kPath, ""}, {kLastPath, bytes}}, old},
      {"cut by the last end", {{kPath, bytes.substr(0, 99)}, {kLastPath, bytes}}, old},
      {"damaged", {{kPath, "x" + bytes}, {kLastPath, bytes}}, old},
      {"damaged and alone", {{kPath, kReadableInPart}}, inPart},
      {"damaged like the second copy", {{kPath, kReadableInPart}, {kLastPath, "{"}}, inPart},
      {"a half second copy", {{kPath, bytes}, {kLastPath, bytes.substr(0, 99)}}, old},
      {"connected",
       {{kPath, FileBytes(held)}, {kLastPath, FileBytes(held)}, {kGrantPath, grant}},
       held},
  };
}

// Saves `next` and is killed before step `step`; false if the save has fewer steps.
bool SaveKilledAt(int step, const Settings& next, MemoryDisk& disk) {
  disk.stepsToLive = step;
  bool killed = false;
  try {
    EXPECT_EQ(disk.File().Save(next).failure, L"");
  } catch (const Killed&) {
    killed = true;
  }
  disk.stepsToLive = -1;
  return killed;
}

// Each save stores a new connection, or, if one already exists, a new profile.
TEST(KilledSave, LeavesTheOldSettingsOrTheNew) {
  for (const KilledSave& row : KilledSaves()) {
    const bool held = !row.known.connectionId.empty();
    const Settings next = Record(L"new", held ? row.known.connectionId.c_str() : L"c2");
    int step = 0;
    bool wasNew = false;
    for (;; ++step) {
      SCOPED_TRACE(std::string(row.name) + ", step " + std::to_string(step));
      MemoryDisk disk;
      disk.files = row.before;
      const bool killed = SaveKilledAt(step, next, disk);
      const Settings found = disk.Load();
      const bool isNew = FileBytes(found) == FileBytes(next);
      EXPECT_TRUE(isNew || FileBytes(found) == FileBytes(row.known));
      EXPECT_EQ(found.granted, isNew ? next.granted : row.known.granted);
      EXPECT_TRUE(isNew || !wasNew) << "what is written stays";
      wasNew = isNew;
      if (!killed) break;
    }
    EXPECT_TRUE(wasNew) << row.name;
    EXPECT_GE(step, held ? 8 : 12) << row.name << ": four steps for each file";
  }
}

TEST(KilledSave, KeepsADamagedFileInOnePlaceOrTheOther) {
  const std::string good = FileBytes(Record(L"old", L""));
  for (int step = 0;; ++step) {
    MemoryDisk disk;
    disk.files = {{kPath, "damaged"}, {kLastPath, good}};
    const bool killed = SaveKilledAt(step, Record(L"new", L""), disk);
    EXPECT_TRUE(disk.files[kPath] == "damaged" || disk.files[kDamagedPath] == "damaged") << step;
    if (!killed) break;
  }
}

// After any number of kills, a save must succeed without losing the earlier settings.
TEST(KilledSave, MayBeRepeated) {
  for (int step = 0; step < 12; ++step) {
    MemoryDisk disk;
    disk.files = {{kPath, FileBytes(Record(L"old", L""))}};
    for (int times = 0; times < 3; ++times) {
      SaveKilledAt(step, Record(L"new", L""), disk);
      Settings found = disk.Load();
      ASSERT_EQ(found.siteProfiles.size(), 2u) << step;
      EXPECT_EQ(found.siteProfiles[0].name, L"kept") << step;
    }
    EXPECT_EQ(disk.File().Save(Record(L"new", L"")).failure, L"");
    EXPECT_EQ(disk.Load().siteProfiles.at(1).name, L"new");
  }
}

}  // namespace
}  // namespace settings
