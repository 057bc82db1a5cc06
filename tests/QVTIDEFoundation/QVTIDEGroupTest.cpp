#include "QVTIDEFoundation/QVTIDEFile.h"
#include "QVTIDEFoundation/QVTIDEGroup.h"
#include "tests/support/Test.h"

namespace {

const Dictionary kFile{{"isa", "PBXFileReference"}};

Dictionary group(Array children) {
  return {{"isa", "PBXGroup"}, {"children", std::move(children)}};
}

std::shared_ptr<QVTIDEGroup> make(const Dictionary& objects, const std::string& id) {
  return QVTIDEGroup::initWithGroupDictionaryObjectIdObjectsDictionary(
      foundation::dictionaryAt(objects, id), id, objects);
}

TEST(QVTIDEGroup, NeverContainsItself) {
  const auto top = make({{"A", group({"A", "B", "F"})},
                         {"B", group({"C"})},
                         {"C", group({"A", "B", "C", "F"})},
                         {"F", kFile}},
                        "A");
  std::string tree;
  top->enumerateTree([&](const QVTIDESourceTreeObject& object, int depth) {
    tree += std::to_string(depth) + object.objectId() + " ";
  });
  EXPECT_EQ(tree, "0B 1C 2F 0F ");
}

TEST(QVTIDEGroup, TheLastObjectOfAnIdentifierIsTaken) {
  const auto top = make(
      {{"A", group({"B", "F", "C", "B"})}, {"B", group({"F"})}, {"C", group({"F"})}, {"F", kFile}},
      "A");
  ASSERT_EQ(top->children().size(), 4U);
  const auto files = top->filesDictionary();
  EXPECT_EQ(files.at("F")->parentGroupObjectId(), "B");
  EXPECT_EQ(files.at("B"), top->children()[3]);
}

TEST(QVTIDEGroup, DoublingAndDeepGroupsEnd) {
  Dictionary objects{{"D200", kFile}};
  for (int i = 0; i < 200; ++i) {
    const std::string next = "D" + std::to_string(i + 1);
    objects.emplace("D" + std::to_string(i), group({next, next}));
  }
  EXPECT_EQ(make(objects, "D0")->filesDictionary().size(), 200U);
  for (int i = 0; i < 100000; ++i) {
    objects.emplace("N" + std::to_string(i), group({"N" + std::to_string(i + 1)}));
  }
  EXPECT_EQ(make(objects, "N0")->filesDictionary().size(), 511U);
}

}  // namespace
