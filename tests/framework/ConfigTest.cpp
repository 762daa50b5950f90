// Reading a configuration, assembling the pipeline from it and replacing it at run time.
#include <gtest/gtest.h>

#include "framework/LidarAlgo.h"
#include "framework/about.h"
#include "geometry/UnderGroundPoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::CaptureOutput;
using test::ConfigJson;
using test::EntryJson;
using Ids = std::vector<uint32_t>;

// The opening of a document of the library's version, to which the root's other members are added.
std::string VersionRoot() {
  return "{\"version\": \"" + versionNumber + "\"";
}

// Entries of the rain (4) and underground (5) rules get valid parameters, so that their
// parameter messages stay quiet.
std::string Entry(int id, const std::string& name, const std::string& models = "") {
  const char* params = id == 4   ? R"({"validDistance": 6, "reflectionThreshold": 40,
                                     "intensityThreshold": 299})"
                       : id == 5 ? R"({"filter_ground_height": 0.87})"
                                 : "{}";
  return EntryJson(id, name, params, models);
}

class ConfigTest : public testing::Test {
 protected:
  LidarAlgo& Load(const std::string& json, LidarType type = LIDAR_ZEPHEL_B1) {
    pipeline = test::CreatePipeline(type, json, &output);
    return Pipeline();
  }
  LidarAlgo& Pipeline() { return static_cast<LidarAlgo&>(*pipeline); }

  bool Update(const std::string& json) {
    bool accepted = false;
    output = CaptureOutput([&] { accepted = pipeline->UpdateAlgoParam(json); });
    return accepted;
  }

  Ids AlgoIds() {
    Ids ids;
    for (const auto& algo : Pipeline().Algorithms())
      ids.push_back(algo->Id());
    return ids;
  }

  std::unique_ptr<ILidarAlgo> pipeline;
  std::string output;
};

TEST_F(ConfigTest, RunsAlgorithmsInAscendingIdWhateverTheListOrder) {
  Load(ConfigJson(Entry(31, "transform") + "," + Entry(8, "crosstalk") + "," +
                  Entry(5, "underground") + "," + Entry(4, "rain")));
  EXPECT_EQ(AlgoIds(), (Ids{4, 5, 8, 31}));
  EXPECT_EQ(output,
            "[algo]: transform is added!\n[algo]: crosstalk is added!\n"
            "[algo]: underground is added!\n[algo]: rain is added!\n");
}

// A refused text and a disabled table keep the running algorithms; an accepted text replaces
// them all, possibly with nothing.
TEST_F(ConfigTest, UpdateMessagesResultsAndTheListLeft) {
  const std::string unmatched =
      "[algo]: version unmatched, current algo version: " + versionNumber + "!\n";
  struct Case {
    const char* what;
    std::string json;
    std::string message;
    bool accepted;
    Ids left;
  };
  const std::vector<Case> cases = {
      {"empty string", "", "[algo]: algo json string is empty!\n", false, {4}},
      {"syntax error", VersionRoot() + ",", "[algo]: parse json failed!\n", false, {4}},
      {"blank text", " ", "[algo]: parse json failed!\n", false, {4}},
      {"missing version", "{\"algo_list\": []}", unmatched, false, {4}},
      {"previous release", "{\"version\": \"2.0.5\"}", unmatched, false, {4}},
      {"version with a blank", "{\"version\": \"" + versionNumber + " \"}", unmatched, false, {4}},
      {"table disabled",
       ConfigJson("", ", \"enabled\": false"),
       "[algo]: velmar point cloud process algo table disabled.\n",
       true,
       {4}},
      {"replaced", ConfigJson(Entry(31, "transform")), "[algo]: transform is added!\n", true, {31}},
      {"empty list", ConfigJson(""), "", true, {}},
      {"list not an array", VersionRoot() + ", \"algo_list\": 7}", "", true, {}},
      {"no list", VersionRoot() + "}", "", true, {}},
  };
  for (const Case& c : cases) {
    Load(ConfigJson(Entry(4, "rain")));
    EXPECT_EQ(Update(c.json), c.accepted) << c.what;
    EXPECT_EQ(output, c.message) << c.what;
    EXPECT_EQ(AlgoIds(), c.left) << c.what;
  }
}

// Creation never fails: a file that cannot be read leaves a pipeline that passes frames as they
// are.
TEST_F(ConfigTest, UnreadableFilesLeaveAnEmptyPipeline) {
  const std::string empty_file = test::WriteTempFile("");
  const std::pair<std::string, std::string> cases[] = {
      {"", "[algo]: algo json file is empty!\n"},
      {"/nonexistent/velmar.json", "[algo]: open json file /nonexistent/velmar.json failed!\n"},
      {empty_file, "[algo]: parse json failed!\n"}};
  for (const auto& [path, message] : cases) {
    EXPECT_EQ(CaptureOutput([&] { pipeline = ILidarAlgo::Create(LIDAR_MARLO128, path); }), message);
    bool read = true;
    EXPECT_EQ(CaptureOutput([&] { read = Pipeline().ParseAlgoConfigFromFile(path); }), message);
    EXPECT_FALSE(read) << path;
    std::vector<_ori_point> frame = test::MakeFrame(2);
    pipeline->Process(frame);
    EXPECT_TRUE(test::SameBytes(frame, test::MakeFrame(2)));
  }
}

TEST_F(ConfigTest, OnlyBooleanSwitchesCount) {
  for (const char* master : {", \"enabled\": 0", ", \"enabled\": \"false\""}) {
    Load(ConfigJson(Entry(4, "rain"), master));
    EXPECT_EQ(AlgoIds(), Ids{4}) << master;
  }
  Load(
      ConfigJson("{\"id\": 4, \"enabled\": 1, \"name\": \"a\"}, {\"id\": 4, \"enabled\": \"true\", "
                 "\"name\": \"b\"}, {\"id\": 4, \"name\": \"c\"}, {\"id\": 31, \"enabled\": true, "
                 "\"name\": \"e\"}"));
  EXPECT_EQ(AlgoIds(), Ids{31});
  EXPECT_EQ(output, "[algo]: e is added!\n");
}

TEST_F(ConfigTest, UnknownIdsAreReportedAndEveryTableIdIsKnown) {
  Load(ConfigJson(Entry(0, "zero") + "," + Entry(36, "big") + "," + Entry(-3, "negative") + "," +
                  Entry(5, "underground")));
  EXPECT_EQ(output,
            "[algo]: unknown packet algorithm id 0 !\n[algo]: unknown packet algorithm id 36 !\n"
            "[algo]: unknown packet algorithm id -3 !\n[algo]: underground is added!\n");
  EXPECT_EQ(AlgoIds(), Ids{5});
  std::string entries = Entry(1, "algo1");
  for (int id = 2; id <= 35; ++id) {
    entries += "," + Entry(id, "algo" + std::to_string(id));
  }
  Load(ConfigJson(entries));
  EXPECT_EQ(output.find("unknown"), std::string::npos);
}

TEST_F(ConfigTest, LidarTypeMatching) {
  // RainPoint runs on every model; DeletePoint only on "ZephelB1".
  Load(ConfigJson(Entry(4, "empty") + "," + Entry(4, "others", "\"Marlo128\"") + "," +
                  Entry(4, "mixed", "1, null, \"ZephelB1\"") + "," + Entry(16, "unsupported")));
  EXPECT_EQ(output,
            "[algo]: empty is added!\n[algo]: mixed is added!\n[algo]: unsupported is added!\n");
  Load(ConfigJson(Entry(16, "unsupported", "\"Marlo128\"") + "," +
                  Entry(16, "listed", "\"Marlo128\"")),
       LIDAR_MARLO128);
  EXPECT_TRUE(AlgoIds().empty()) << "DeletePoint refuses Marlo128 even when listed";
  EXPECT_EQ(output, "");
  // An entry for other models still has its parameters parsed.
  Load(ConfigJson(EntryJson(5, "under", "{}", "\"Orvik16\"")));
  EXPECT_EQ(output, "[algo]:UnderGroundPoint param is invalid!\n");
}

TEST_F(ConfigTest, ParameterMaps) {
  Load(ConfigJson(
      EntryJson(5, "under",
                R"({"filter_ground_height": 1, "path": "map.txt", "flag": true, "none": null,
          "list": [1], "twice": 1.5, "twice": "late", "big": 1e300})")));
  ASSERT_EQ(AlgoIds(), Ids{5});
  const auto algo = Pipeline().Algorithms().front();
  EXPECT_EQ(algo->num_params.at("filter_ground_height"), 1.0);
  EXPECT_EQ(algo->num_params.at("big"), 1e300);
  EXPECT_EQ(algo->str_params.at("path"), "map.txt");
  EXPECT_EQ(algo->str_params.at("twice"), "late");
  EXPECT_EQ(algo->num_params.count("twice"), 0u);
  for (const char* key : {"flag", "none", "list"}) {
    EXPECT_EQ(algo->num_params.count(key) + algo->str_params.count(key), 0u) << key;
  }
  EXPECT_EQ(std::static_pointer_cast<UnderGroundPoint>(algo)->filter_ground_height, 1.0f);
}

TEST_F(ConfigTest, MalformedDocumentsAndEntriesNeverCrash) {
  Load(ConfigJson(Entry(4, "rain")));
  for (const char* root : {"[]", "\"text\"", "42", "null"}) {
    EXPECT_FALSE(Update(root)) << root;
    EXPECT_EQ(output, "[algo]: json root is not an object, configuration refused!\n");
    EXPECT_EQ(AlgoIds(), Ids{4});
  }
  const std::string bad =
      "7, [], {\"id\": \"4\", \"enabled\": true, \"name\": \"s\"},"
      "{\"id\": 4.5, \"enabled\": true, \"name\": \"f\"},"
      "{\"id\": 4, \"enabled\": true},"
      "{\"id\": 4, \"enabled\": true, \"name\": 12},"
      "{\"id\": 4, \"enabled\": true, \"name\": \"d\", \"desc\": {}},"
      "{\"id\": 4, \"enabled\": true, \"name\": \"p\", \"param\": [1]},"
      "{\"id\": 4, \"enabled\": true, \"name\": \"l\", \"lidar_type\": \"ZephelB1\"},"
      "{\"id\": 18446744073709551615, \"enabled\": true, \"name\": \"u\"}," +
      Entry(5, "good");
  EXPECT_TRUE(Update(ConfigJson(bad)));
  EXPECT_EQ(AlgoIds(), Ids{5});
  EXPECT_EQ(output,
            "[algo]: algo_list entry is not an object, entry skipped!\n"
            "[algo]: algo_list entry is not an object, entry skipped!\n"
            "[algo]: algo id is missing or not an integer, entry skipped!\n"
            "[algo]: algo id is missing or not an integer, entry skipped!\n"
            "[algo]: algo id 4 has no name string, entry skipped!\n"
            "[algo]: algo id 4 has no name string, entry skipped!\n"
            "[algo]: d desc is not a string, entry skipped!\n"
            "[algo]: p param is not an object, entry skipped!\n"
            "[algo]: l lidar_type is not an array, entry skipped!\n"
            "[algo]: unknown packet algorithm id 18446744073709551615 !\n"
            "[algo]: good is added!\n");
}

}  // namespace
}  // namespace velmar
