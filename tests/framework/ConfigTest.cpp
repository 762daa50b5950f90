// Reading a configuration and assembling the pipeline from it.
#include <gtest/gtest.h>

#include "framework/LidarAlgo.h"
#include "geometry/RainPoint.h"
#include "geometry/UnderGroundPoint.h"
#include "support/TestSupport.h"

namespace velmar {
namespace {

using test::CaptureOutput;
using test::WriteTempFile;

// Valid parameters of the two rules used here, so that their parameter messages stay quiet.
std::string DefaultParams(int id) {
  if (id == 4) {
    return ", \"param\": {\"validDistance\": 6, \"reflectionThreshold\": 40, "
           "\"intensityThreshold\": 299}";
  }
  return id == 5 ? ", \"param\": {\"filter_ground_height\": 0.87}" : "";
}

std::string Entry(int id, const std::string& name, const std::string& extra = "") {
  const std::string params = extra.find("\"param\"") == std::string::npos ? DefaultParams(id) : "";
  return "{\"id\": " + std::to_string(id) + ", \"enabled\": true, \"name\": \"" + name +
         "\", \"desc\": \"\"" + extra + params + "}";
}

std::string Document(const std::string& entries, const std::string& rootExtra = "") {
  return "{\"version\": \"2.0.6\"" + rootExtra + ", \"algo_list\": [" + entries + "]}";
}

class ConfigTest : public testing::Test {
 protected:
  // A pipeline built from `json` through a file, as a host creates it.
  std::unique_ptr<LidarAlgo> Load(const std::string& json, LidarType type = LIDAR_ZEPHEL_B1) {
    const std::string path = WriteTempFile(json);
    std::unique_ptr<LidarAlgo> pipeline;
    output = CaptureOutput([&] { pipeline = std::make_unique<LidarAlgo>(type, path); });
    return pipeline;
  }

  bool Update(LidarAlgo& pipeline, const std::string& json) {
    bool accepted = false;
    output = CaptureOutput([&] { accepted = pipeline.UpdateAlgoParam(json); });
    return accepted;
  }

  static std::vector<uint32_t> Ids(LidarAlgo& pipeline) {
    std::vector<uint32_t> ids;
    for (const auto& algo : pipeline.Algorithms())
      ids.push_back(algo->Id());
    return ids;
  }

  std::string output;
};

TEST_F(ConfigTest, RunsAlgorithmsInAscendingIdWhateverTheListOrder) {
  auto pipeline = Load(Document(Entry(31, "transform") + "," + Entry(8, "crosstalk") + "," +
                                Entry(5, "underground") + "," + Entry(4, "rain")));
  EXPECT_EQ(Ids(*pipeline), (std::vector<uint32_t>{4, 5, 8, 31}));
  EXPECT_EQ(output,
            "[algo]: transform is added!\n[algo]: crosstalk is added!\n"
            "[algo]: underground is added!\n[algo]: rain is added!\n");
}

TEST_F(ConfigTest, FailureTableMessagesAndResults) {
  struct Case {
    const char* what;
    std::string json;
    std::string message;
    bool accepted;
  };
  const std::vector<Case> cases = {
      {"syntax error", "{\"version\": \"2.0.6\",", "[algo]: parse json failed!\n", false},
      {"empty text", " ", "[algo]: parse json failed!\n", false},
      {"missing version", "{\"algo_list\": []}",
       "[algo]: version unmatched, current algo version: 2.0.6!\n", false},
      {"older version", "{\"version\": \"2.0.5\"}",
       "[algo]: version unmatched, current algo version: 2.0.6!\n", false},
      {"version with a blank", "{\"version\": \"2.0.6 \"}",
       "[algo]: version unmatched, current algo version: 2.0.6!\n", false},
      {"table disabled", "{\"version\": \"2.0.6\", \"enabled\": false, \"algo_list\": []}",
       "[algo]: velmar point cloud process algo table disabled.\n", true},
  };
  for (const Case& c : cases) {
    auto pipeline = Load(Document(Entry(4, "rain")));
    ASSERT_EQ(Ids(*pipeline), std::vector<uint32_t>{4});
    EXPECT_EQ(Update(*pipeline, c.json), c.accepted) << c.what;
    EXPECT_EQ(output, c.message) << c.what;
    EXPECT_EQ(Ids(*pipeline), std::vector<uint32_t>{4}) << c.what << ": previous list kept";
  }
}

TEST_F(ConfigTest, FileErrors) {
  auto pipeline = Load("");
  EXPECT_EQ(output, "[algo]: parse json failed!\n");
  std::string printed = CaptureOutput(
      [&] { EXPECT_FALSE(pipeline->ParseAlgoConfigFromFile("/nonexistent/velmar.json")); });
  EXPECT_EQ(printed, "[algo]: open json file /nonexistent/velmar.json failed!\n");
  printed = CaptureOutput([&] { EXPECT_FALSE(pipeline->ParseAlgoConfigFromFile("")); });
  EXPECT_EQ(printed, "[algo]: algo json file is empty!\n");
}

TEST_F(ConfigTest, AcceptedDocumentReplacesTheList) {
  auto pipeline = Load(Document(Entry(4, "rain") + "," + Entry(5, "underground")));
  EXPECT_TRUE(Update(*pipeline, Document(Entry(31, "transform"))));
  EXPECT_EQ(Ids(*pipeline), std::vector<uint32_t>{31});
  EXPECT_TRUE(Update(*pipeline, Document("")));
  EXPECT_TRUE(Ids(*pipeline).empty());
  EXPECT_TRUE(Update(*pipeline, "{\"version\": \"2.0.6\", \"algo_list\": 7}"));
  EXPECT_TRUE(Ids(*pipeline).empty());
}

TEST_F(ConfigTest, OnlyBooleanSwitchesCount) {
  for (const char* master : {", \"enabled\": 0", ", \"enabled\": \"false\""}) {
    EXPECT_EQ(Ids(*Load(Document(Entry(4, "rain"), master))), std::vector<uint32_t>{4}) << master;
  }
  const std::string entries =
      "{\"id\": 4, \"enabled\": 1, \"name\": \"a\"}, {\"id\": 4, \"enabled\": \"true\", "
      "\"name\": \"b\"}, {\"id\": 4, \"name\": \"c\"}, {\"id\": 31, \"enabled\": true, "
      "\"name\": \"e\"}";
  EXPECT_EQ(Ids(*Load(Document(entries))), std::vector<uint32_t>{31});
  EXPECT_EQ(output, "[algo]: e is added!\n");
}

TEST_F(ConfigTest, UnknownIdsAreReportedAndEveryTableIdIsKnown) {
  auto pipeline = Load(Document(Entry(0, "zero") + "," + Entry(36, "big") + "," +
                                Entry(-3, "negative") + "," + Entry(5, "underground")));
  EXPECT_EQ(output,
            "[algo]: unknown packet algorithm id 0 !\n[algo]: unknown packet algorithm id 36 !\n"
            "[algo]: unknown packet algorithm id -3 !\n[algo]: underground is added!\n");
  EXPECT_EQ(Ids(*pipeline), std::vector<uint32_t>{5});
  std::string entries = Entry(1, "algo1");
  for (int id = 2; id <= 35; ++id) {
    entries += "," + Entry(id, "algo" + std::to_string(id));
  }
  Load(Document(entries));
  EXPECT_EQ(output.find("unknown"), std::string::npos);
}

TEST_F(ConfigTest, LidarTypeMatching) {
  // RainPoint runs on every model; DeletePoint only on "ZephelB1".
  auto pipeline = Load(Document(Entry(4, "empty", ", \"lidar_type\": []") + "," +
                                Entry(4, "others", ", \"lidar_type\": [\"Marlo128\"]") + "," +
                                Entry(4, "mixed", ", \"lidar_type\": [1, null, \"ZephelB1\"]") +
                                "," + Entry(16, "unsupported", ", \"lidar_type\": []")),
                       LIDAR_ZEPHEL_B1);
  EXPECT_EQ(output,
            "[algo]: empty is added!\n[algo]: mixed is added!\n[algo]: unsupported is added!\n");
  pipeline = Load(Document(Entry(16, "unsupported", ", \"lidar_type\": [\"Marlo128\"]") + "," +
                           Entry(16, "listed", ", \"lidar_type\": [\"Marlo128\"]")),
                  LIDAR_MARLO128);
  EXPECT_TRUE(Ids(*pipeline).empty()) << "DeletePoint refuses Marlo128 even when listed";
  EXPECT_EQ(output, "");
  // An entry for other models still has its parameters parsed.
  Load(Document(Entry(5, "under", ", \"lidar_type\": [\"Orvik16\"], \"param\": {}")));
  EXPECT_EQ(output, "[algo]:UnderGroundPoint param is invalid!\n");
}

TEST_F(ConfigTest, ParameterMaps) {
  auto pipeline = Load(Document(Entry(
      5, "under",
      ", \"param\": {\"filter_ground_height\": 1, \"path\": \"map.txt\", \"flag\": true, "
      "\"none\": null, \"list\": [1], \"twice\": 1.5, \"twice\": \"late\", \"big\": 1e300}")));
  ASSERT_EQ(Ids(*pipeline), std::vector<uint32_t>{5});
  const auto algo = pipeline->Algorithms().front();
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
  auto pipeline = Load(Document(Entry(4, "rain")));
  for (const char* root : {"[]", "\"2.0.6\"", "42", "null"}) {
    EXPECT_FALSE(Update(*pipeline, root)) << root;
    EXPECT_EQ(output, "[algo]: json root is not an object, configuration refused!\n");
    EXPECT_EQ(Ids(*pipeline), std::vector<uint32_t>{4});
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
  EXPECT_TRUE(Update(*pipeline, Document(bad)));
  EXPECT_EQ(Ids(*pipeline), std::vector<uint32_t>{5});
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
