#include <gtest/gtest.h>

#include "QVTIDEFoundation/QVTIDEFile.h"
#include "QVTIDEFoundation/QVTIDEGroup.h"

namespace {

using foundation::Array;
using foundation::Dictionary;

Dictionary group(Array children) {
  return {{"isa", "PBXGroup"}, {"children", std::move(children)}};
}

std::shared_ptr<QVTIDEGroup> make(const Dictionary& objects, const std::string& id) {
  return QVTIDEGroup::initWithGroupDictionaryObjectIdObjectsDictionary(
      foundation::dictionaryAt(objects, id), id, objects);
}

std::string treeOf(const QVTIDEGroup& top) {
  std::string tree;
  top.enumerateTree(
      [&tree](const QVTIDESourceTreeObject& object, int) { tree += object.objectId() + " "; });
  return tree;
}

TEST(QVTIDEGroup, NeverContainsItself) {
  const Dictionary objects{{"A", group({"A", "B", "F"})},
                           {"B", group({"C"})},
                           {"C", group({"A", "B", "C", "F"})},
                           {"F", Dictionary{{"isa", "PBXFileReference"}}}};
  const auto top = make(objects, "A");
  EXPECT_EQ(treeOf(*top), "B C F F ");
  EXPECT_EQ(top->filesDictionary().size(), 3U);
}

TEST(QVTIDEGroup, TheLastObjectOfAnIdentifierIsTaken) {
  const Dictionary objects{{"A", group({"B", "F", "C", "B"})},
                           {"B", group({"F"})},
                           {"C", group({"F"})},
                           {"F", Dictionary{{"isa", "PBXFileReference"}}}};
  const auto top = make(objects, "A");
  EXPECT_EQ(top->children().size(), 4U);
  const auto files = top->filesDictionary();
  EXPECT_EQ(files.at("F")->parentGroupObjectId(), "B");
  EXPECT_EQ(files.at("B"), top->children()[3]);
}

TEST(QVTIDEGroup, ADirectChildIsReplacedByALaterDeeperOne) {
  const Dictionary objects{{"A", group({"B", "F"})},
                           {"R", group({"F", "B"})},
                           {"B", group({"F"})},
                           {"F", Dictionary{{"isa", "PBXFileReference"}}}};
  EXPECT_EQ(make(objects, "A")->filesDictionary().at("F")->parentGroupObjectId(), "A");
  EXPECT_EQ(make(objects, "R")->filesDictionary().at("F")->parentGroupObjectId(), "B");
}

TEST(QVTIDEGroup, DoublingAndDeepGroupsEnd) {
  Dictionary objects{{"F", Dictionary{{"isa", "PBXFileReference"}}}};
  for (int i = 0; i < 200; ++i) {
    const std::string next = i == 199 ? "F" : "D" + std::to_string(i + 1);
    objects.emplace("D" + std::to_string(i), group({next, next}));
  }
  const auto doubled = make(objects, "D0");
  EXPECT_EQ(doubled->filesDictionary().size(), 200U);
  for (int i = 0; i < 100000; ++i) {
    objects.emplace("N" + std::to_string(i), group({"N" + std::to_string(i + 1)}));
  }
  EXPECT_EQ(make(objects, "N0")->filesDictionary().size(), 511U);
}

}  // namespace
