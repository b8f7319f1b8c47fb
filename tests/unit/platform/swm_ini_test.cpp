// Tests of the INI reader of libswm: syntax, limits, malformed files and value lookup.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "swm.h"

namespace {

struct Key {
  std::string name;
  std::string value;
  bool operator==(const Key &) const = default;
};

struct Section {
  std::string name;
  std::vector<Key> keys;
  bool operator==(const Section &) const = default;
};

using Profile = std::vector<Section>;

void PrintTo(const Section &section, std::ostream *out) {
  *out << section.name << "{";
  for (const Key &key : section.keys) {
    *out << key.name << "=" << key.value << ";";
  }
  *out << "}";
}

class TempDir {
 public:
  TempDir() {
    char pattern[] = "/tmp/swm_ini_test.XXXXXX";
    if (mkdtemp(pattern) != nullptr) {
      path_ = pattern;
    }
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir &) = delete;
  TempDir &operator=(const TempDir &) = delete;
  const std::string &path() const { return path_; }

 private:
  std::string path_;
};

size_t OpenDescriptorCount() {
  size_t count = 0;
  for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++count;
  }
  return count;
}

Profile Convert(const SWM_INI_SECTION_S *section) {
  Profile profile;
  for (; section != nullptr; section = section->next) {
    Section copy{section->name, {}};
    for (const SWM_INI_KEY_S *key = section->keys; key != nullptr; key = key->next) {
      copy.keys.push_back({key->name, key->value});
    }
    profile.push_back(copy);
  }
  return profile;
}

class SwmIniTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_FALSE(dir_.path().empty()) << "mkdtemp failed"; }

  // Writes text (binary, as given) to a file and returns its path.
  std::string WriteIni(const std::string &text, const std::string &name = "test.ini") const {
    const std::string path = dir_.path() + "/" + name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    EXPECT_TRUE(out.good());
    return path;
  }

  // The profile loaded from text; nullopt when the loader returns NULL.
  std::optional<Profile> Load(const std::string &text) const {
    FILE *stream = std::fopen(WriteIni(text).c_str(), "r");
    EXPECT_NE(stream, nullptr);
    if (stream == nullptr) {
      return std::nullopt;
    }
    SWM_INI_SECTION_S *loaded = SWM_IniLoadProfile(stream);
    std::fclose(stream);
    if (loaded == nullptr) {
      return std::nullopt;
    }
    Profile profile = Convert(loaded);
    SWM_FreeProfile(loaded);
    return profile;
  }

  // SWM_IniGetValue on text with a buffer of bufferSize bytes; *value receives the buffer.
  uint32_t GetValue(const std::string &text, const char *section, const char *key,
                    std::string *value, uint32_t bufferSize = 2048) const {
    const std::string path = WriteIni(text);
    std::vector<char> buffer(bufferSize + 1, '#');
    const uint32_t rc = SWM_IniGetValue(path.c_str(), section, key, buffer.data(), bufferSize);
    EXPECT_EQ(buffer[bufferSize], '#') << "wrote past the buffer";
    buffer[bufferSize] = '\0';
    *value = buffer.data();
    return rc;
  }

  TempDir dir_;
};

// ---- record layout ----

TEST(SwmIniLayout, RecordsKeepTheirSizesAndOffsets) {
  EXPECT_EQ(sizeof(SWM_INI_KEY_S::name), 129U);
  EXPECT_EQ(sizeof(SWM_INI_KEY_S::value), 1031U);
  EXPECT_EQ(offsetof(SWM_INI_KEY_S, name), 0U);
  EXPECT_EQ(offsetof(SWM_INI_KEY_S, value), 129U);
  EXPECT_EQ(offsetof(SWM_INI_KEY_S, next), 1160U);
  EXPECT_EQ(sizeof(SWM_INI_SECTION_S::name), 72U);
  EXPECT_EQ(offsetof(SWM_INI_SECTION_S, keys), 72U);
  EXPECT_EQ(offsetof(SWM_INI_SECTION_S, next), 80U);
}

// ---- syntax ----

TEST_F(SwmIniTest, LoadsSectionsAndKeysInFileOrder) {
  const auto profile = Load(
      "[board]\n"
      "name=lc48\n"
      "slot=3\n"
      "[files]\n"
      "/opt/a=sha1\n"
      "[empty]\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{
      {"[board]", {{"name", "lc48"}, {"slot", "3"}}},
      {"[files]", {{"/opt/a", "sha1"}}},
      {"[empty]", {}},
  };
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, TrimsSectionLinesKeysAndValuesButNotTheInsideOfNames) {
  const auto profile = Load(
      "  \t[ spaced name ]  \n"
      "\t key one \t=\t value with  spaces \t\n"
      "k=  \n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[ spaced name ]", {{"key one", "value with  spaces"}, {"k", ""}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, SplitsAtTheFirstEqualsSign) {
  const auto profile = Load("[s]\na = b=c==d\nurl=http://x/?q=1\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"a", "b=c==d"}, {"url", "http://x/?q=1"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, ReadsCrlfFiles) {
  const auto profile = Load("[s]\r\nkey=value\r\n\r\nother = x \r\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"key", "value"}, {"other", "x"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, IgnoresCommentsAndBlankLines) {
  const auto profile = Load(
      "# leading comment\n"
      "; another = comment\n"
      "\n"
      "   \t \n"
      "[s]\n"
      "  # indented comment\n"
      "\t; indented = comment\n"
      "key=value # not a comment\n"
      "semi=a;b\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"key", "value # not a comment"}, {"semi", "a;b"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, ReadsALastLineWithoutNewline) {
  const auto profile = Load("[s]\nkey=last");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"key", "last"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, KeepsDuplicateSectionsAndKeysInOrder) {
  const auto profile = Load("[s]\nk=1\nk=2\n[s]\nk=3\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"k", "1"}, {"k", "2"}}}, {"[s]", {{"k", "3"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, BracketsOnlyMakeASectionAtBothEnds) {
  const auto profile = Load("[s]\n[a]=b\n[]\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"[a]", "b"}}}, {"[]", {}}};
  EXPECT_EQ(*profile, expected);
  EXPECT_FALSE(Load("[s]\n[open\n").has_value());
  EXPECT_FALSE(Load("[s]\n[a] trailing\n").has_value());
  EXPECT_FALSE(Load("[s]\n[\n").has_value());
}

// ---- malformed and empty files ----

TEST_F(SwmIniTest, RejectsKeysBeforeTheFirstSection) {
  EXPECT_FALSE(Load("key=value\n[s]\nk=v\n").has_value());
}

TEST_F(SwmIniTest, RejectsLinesWithoutEqualsSign) {
  EXPECT_FALSE(Load("[s]\nk=v\njust words\n").has_value());
}

TEST_F(SwmIniTest, RejectsEmptyKeys) {
  EXPECT_FALSE(Load("[s]\n=value\n").has_value());
  EXPECT_FALSE(Load("[s]\n \t = value\n").has_value());
}

TEST_F(SwmIniTest, RejectsNulBytesInsideLines) {
  EXPECT_FALSE(Load(std::string("[s]\nkey=va\0lue\n", 15)).has_value());
  EXPECT_FALSE(Load(std::string("[s]\n\0\n", 6)).has_value());
}

TEST_F(SwmIniTest, GivesNothingForFilesWithoutSections) {
  EXPECT_FALSE(Load("").has_value());
  EXPECT_FALSE(Load("\n\n  \n").has_value());
  EXPECT_FALSE(Load("# only a comment\n; and another\n").has_value());
}

TEST_F(SwmIniTest, RejectsNullStreamsAndUnreadableStreams) {
  EXPECT_EQ(SWM_IniLoadProfile(nullptr), nullptr);
  FILE *writeOnly = std::fopen((dir_.path() + "/w.ini").c_str(), "w");
  ASSERT_NE(writeOnly, nullptr);
  std::fputs("[s]\nk=v\n", writeOnly);
  std::fflush(writeOnly);
  EXPECT_EQ(SWM_IniLoadProfile(writeOnly), nullptr);
  std::fclose(writeOnly);
}

TEST(SwmFreeProfile, AcceptsNull) { SWM_FreeProfile(nullptr); }

// ---- limits ----

TEST_F(SwmIniTest, SectionNamesUpTo71CharactersFit) {
  const std::string fits = "[" + std::string(69, 's') + "]";
  ASSERT_EQ(fits.size(), 71U);
  const auto profile = Load(fits + "\nk=v\n");
  ASSERT_TRUE(profile.has_value());
  ASSERT_EQ(profile->size(), 1U);
  EXPECT_EQ((*profile)[0].name, fits);
  const std::string tooLong = "[" + std::string(70, 's') + "]";
  ASSERT_EQ(tooLong.size(), 72U);
  EXPECT_FALSE(Load(tooLong + "\nk=v\n").has_value());
  EXPECT_FALSE(Load("[s]\nk=v\n" + tooLong + "\n").has_value());
}

TEST_F(SwmIniTest, KeysUpTo128CharactersFit) {
  const std::string fits(128, 'k');
  const auto profile = Load("[s]\n" + fits + "=v\n");
  ASSERT_TRUE(profile.has_value());
  EXPECT_EQ((*profile)[0].keys, (std::vector<Key>{{fits, "v"}}));
  // Surrounding blanks do not count once trimmed.
  EXPECT_TRUE(Load("[s]\n   " + fits + "   =v\n").has_value());
  EXPECT_FALSE(Load("[s]\n" + std::string(129, 'k') + "=v\n").has_value());
}

TEST_F(SwmIniTest, ValuesUpTo1030CharactersFit) {
  const std::string fits(1030, 'v');
  const auto profile = Load("[s]\nk=" + fits + "\n");
  ASSERT_TRUE(profile.has_value());
  EXPECT_EQ((*profile)[0].keys, (std::vector<Key>{{"k", fits}}));
  EXPECT_TRUE(Load("[s]\nk=  " + fits + "  \r\n").has_value());
  EXPECT_FALSE(Load("[s]\nk=" + std::string(1031, 'v') + "\n").has_value());
}

TEST_F(SwmIniTest, ALongLineNeverBecomesASecondKey) {
  // A reader with a fixed line buffer would cut this line and read its tail as "evil=1".
  const std::string line = "k=" + std::string(1200, 'a') + "evil=1" + std::string(3792, 'b');
  ASSERT_EQ(line.size(), 5000U);
  EXPECT_FALSE(Load("[s]\n" + line + "\n").has_value());
  std::string value;
  EXPECT_EQ(GetValue("[s]\n" + line + "\n", "[s]", "evil", &value), SWM_ERR_FORMAT);
  EXPECT_EQ(value, "");
}

TEST_F(SwmIniTest, ALongCommentStaysOneComment) {
  const std::string comment = "#" + std::string(2500, 'c') + "evil=1" + std::string(2493, 'c');
  ASSERT_EQ(comment.size(), 5000U);
  const auto profile = Load("[s]\n" + comment + "\nk=v\n");
  ASSERT_TRUE(profile.has_value());
  const Profile expected{{"[s]", {{"k", "v"}}}};
  EXPECT_EQ(*profile, expected);
}

TEST_F(SwmIniTest, LoadsLargeFiles) {
  std::string text;
  for (int s = 0; s < 2000; ++s) {
    text += "[section" + std::to_string(s) + "]\n";
    for (int k = 0; k < 5; ++k) {
      text += "key" + std::to_string(k) + "=value" + std::to_string(s * 5 + k) + "\n";
    }
  }
  const auto profile = Load(text);
  ASSERT_TRUE(profile.has_value());
  ASSERT_EQ(profile->size(), 2000U);
  EXPECT_EQ((*profile)[1999].name, "[section1999]");
  ASSERT_EQ((*profile)[1999].keys.size(), 5U);
  EXPECT_EQ((*profile)[1999].keys[4], (Key{"key4", "value9999"}));
}

// ---- value lookup ----

constexpr const char *kBoard =
    "[board]\n"
    "name = lc48\n"
    "empty =\n"
    "dup = first\n"
    "dup = second\n"
    "[files]\n"
    "name = other\n"
    "only_here = yes\n"
    "[board]\n"
    "late = ignored\n";

TEST_F(SwmIniTest, GetValueFindsTheFirstMatch) {
  std::string value;
  EXPECT_EQ(GetValue(kBoard, "[board]", "name", &value), SWM_OK);
  EXPECT_EQ(value, "lc48");
  EXPECT_EQ(GetValue(kBoard, "[files]", "name", &value), SWM_OK);
  EXPECT_EQ(value, "other");
  EXPECT_EQ(GetValue(kBoard, "[board]", "dup", &value), SWM_OK);
  EXPECT_EQ(value, "first");
  EXPECT_EQ(GetValue(kBoard, "[board]", "empty", &value), SWM_OK);
  EXPECT_EQ(value, "");
}

TEST_F(SwmIniTest, GetValueLooksOnlyInTheFirstSectionOfThatName) {
  std::string value;
  EXPECT_EQ(GetValue(kBoard, "[board]", "late", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(value, "");
}

TEST_F(SwmIniTest, GetValueReportsMissingSectionsAndKeys) {
  std::string value;
  EXPECT_EQ(GetValue(kBoard, "[nope]", "name", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(value, "");
  EXPECT_EQ(GetValue(kBoard, "board", "name", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(GetValue(kBoard, "[board]", "only_here", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(GetValue(kBoard, "[board]", "NAME", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(GetValue(kBoard, "[board]", "", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(GetValue("", "[board]", "name", &value), SWM_ERR_NOT_FOUND);
  EXPECT_EQ(GetValue("# nothing\n", "[board]", "name", &value), SWM_ERR_NOT_FOUND);
}

TEST_F(SwmIniTest, GetValueNeedsRoomForTheTerminator) {
  std::string value;
  EXPECT_EQ(GetValue(kBoard, "[board]", "name", &value, 5), SWM_OK);  // "lc48" + NUL
  EXPECT_EQ(value, "lc48");
  EXPECT_EQ(GetValue(kBoard, "[board]", "name", &value, 4), SWM_ERR_TOO_LONG);
  EXPECT_EQ(value, "");
  EXPECT_EQ(GetValue(kBoard, "[board]", "empty", &value, 1), SWM_OK);
  EXPECT_EQ(value, "");
  const std::string longest(1030, 'z');
  EXPECT_EQ(GetValue("[s]\nk=" + longest + "\n", "[s]", "k", &value, 1031), SWM_OK);
  EXPECT_EQ(value, longest);
  EXPECT_EQ(GetValue("[s]\nk=" + longest + "\n", "[s]", "k", &value, 1030), SWM_ERR_TOO_LONG);
  EXPECT_EQ(value, "");
}

TEST_F(SwmIniTest, GetValueReportsMalformedFiles) {
  std::string value;
  EXPECT_EQ(GetValue("k=v\n[s]\nk=v\n", "[s]", "k", &value), SWM_ERR_FORMAT);
  EXPECT_EQ(GetValue("[s]\nk=v\ngarbage\n", "[s]", "k", &value), SWM_ERR_FORMAT);
  EXPECT_EQ(GetValue("[s]\nk=" + std::string(1031, 'v') + "\n", "[s]", "k", &value),
            SWM_ERR_FORMAT);
  EXPECT_EQ(value, "");
}

TEST_F(SwmIniTest, GetValueReportsUnreadableFiles) {
  char value[16] = "stale";
  EXPECT_EQ(
      SWM_IniGetValue((dir_.path() + "/missing.ini").c_str(), "[s]", "k", value, sizeof(value)),
      SWM_ERR_IO);
  EXPECT_STREQ(value, "");
  std::strcpy(value, "stale");
  EXPECT_EQ(SWM_IniGetValue(dir_.path().c_str(), "[s]", "k", value, sizeof(value)), SWM_ERR_IO);
  EXPECT_STREQ(value, "");
}

TEST_F(SwmIniTest, GetValueRejectsMissingArguments) {
  const std::string path = WriteIni("[s]\nk=v\n");
  char value[8] = "stale";
  EXPECT_EQ(SWM_IniGetValue(nullptr, "[s]", "k", value, sizeof(value)), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_IniGetValue(path.c_str(), nullptr, "k", value, sizeof(value)), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_IniGetValue(path.c_str(), "[s]", nullptr, value, sizeof(value)), SWM_ERR_PARAM);
  EXPECT_EQ(SWM_IniGetValue(path.c_str(), "[s]", "k", nullptr, 8), SWM_ERR_PARAM);
  std::strcpy(value, "stale");
  EXPECT_EQ(SWM_IniGetValue(path.c_str(), "[s]", "k", value, 0), SWM_ERR_PARAM);
  EXPECT_STREQ(value, "stale");  // a zero-sized buffer is never written
}

TEST_F(SwmIniTest, GetValueLeaksNoDescriptors) {
  const std::string good = WriteIni("[s]\nk=v\n", "good.ini");
  const std::string bad = WriteIni("[s]\nbroken\n", "bad.ini");
  const size_t before = OpenDescriptorCount();
  char value[8];
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(SWM_IniGetValue(good.c_str(), "[s]", "k", value, sizeof(value)), SWM_OK);
    EXPECT_EQ(SWM_IniGetValue(good.c_str(), "[s]", "x", value, sizeof(value)), SWM_ERR_NOT_FOUND);
    EXPECT_EQ(SWM_IniGetValue(good.c_str(), "[s]", "k", value, 1), SWM_ERR_TOO_LONG);
    EXPECT_EQ(SWM_IniGetValue(bad.c_str(), "[s]", "k", value, sizeof(value)), SWM_ERR_FORMAT);
  }
  EXPECT_EQ(OpenDescriptorCount(), before);
}

}  // namespace
