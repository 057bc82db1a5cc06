#include <limits>

#include <gtest/gtest.h>

#include "foundation/PropertyList.h"
#include "tests/support/TemporaryFolder.h"

namespace foundation {
namespace {

using std::string_literals::operator""s;

std::string bigEndian(std::uint64_t number, int size) {
  std::string out;
  for (int shift = size * 8 - 8; shift >= 0; shift -= 8) out += static_cast<char>(number >> shift);
  return out;
}

/// A binary property list of objects that are given as their bytes; references take one byte.
struct BinaryList {
  std::vector<std::string> objects;
  std::uint64_t top = 0;
  std::optional<std::uint64_t> count = {};
  std::optional<std::uint64_t> table = {};
  int offsetSize = 4;
  int referenceSize = 1;

  [[nodiscard]] std::string bytes() const {
    std::string out = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
      offsets += bigEndian(out.size(), offsetSize);
      out += object;
    }
    const std::uint64_t place = out.size();
    return out + offsets + std::string(6, '\0') + bigEndian(offsetSize, 1) +
           bigEndian(referenceSize, 1) + bigEndian(count.value_or(objects.size()), 8) +
           bigEndian(top, 8) + bigEndian(table.value_or(place), 8);
  }
};

Result<Value> read(std::string_view text) { return PropertyList::parse(bytesOf(text)); }

std::string plist(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" +
         std::string(content) + "</plist>\n";
}

std::string doubleBits(double number) { return bigEndian(std::bit_cast<std::uint64_t>(number), 8); }

TEST(PropertyList, WritesThePlatformsXML) {
  const auto text = PropertyList::xml(Dictionary{{"b", Array{1, true, "<&>"}},
                                                 {"a", Dictionary{}},
                                                 {"d", Data(std::string(60, 'x'))},
                                                 {"e", Array{}},
                                                 {"z", 0.1}});
  ASSERT_TRUE(text);
  EXPECT_EQ(*text,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
            "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
            "<plist version=\"1.0\">\n<dict>\n"
            "\t<key>a</key>\n\t<dict/>\n"
            "\t<key>b</key>\n\t<array>\n\t\t<integer>1</integer>\n\t\t<true/>\n"
            "\t\t<string>&lt;&amp;&gt;</string>\n\t</array>\n"
            "\t<key>d</key>\n\t<data>\n"
            "\teHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4eHh4\n"
            "\teHh4eHh4eHh4\n\t</data>\n"
            "\t<key>e</key>\n\t<array/>\n"
            "\t<key>z</key>\n\t<real>0.1</real>\n"
            "</dict>\n</plist>\n");
}

TEST(PropertyList, EveryKindOfValueSurvivesXML) {
  const Value value = Dictionary{
      {"false", false},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"minus", -1},
      {"most", std::numeric_limits<std::int64_t>::max()},
      {"unsigned", ~std::uint64_t{0}},
      {"reals", Array{0.1, -1.5e-300, 1e22, 3.0, 1.0 / 3, std::numeric_limits<double>::infinity()}},
      {"text", " \t\n\r<>&\"' \u00e4\U0001f600 ]]>"},
      {"empty", ""},
      {"", "empty key"},
      {"key <&>", 1},
      {"date", Date(std::chrono::seconds(1425211200))},
      {"dates", Array{Date(std::chrono::seconds(64092211200)),
                      Date(std::chrono::seconds(-62135596800)), Date(std::chrono::seconds(-1))}},
      {"data", Data("\0\xff\x80<"s)},
      {"no data", Data()},
      {"nested", Array{Array{}, Dictionary{{"a", Array{Dictionary{}}}}}},
  };
  const auto text = PropertyList::xml(value);
  ASSERT_TRUE(text) << text.error().localizedDescription();
  const auto back = read(*text);
  ASSERT_TRUE(back) << back.error().localizedDescription();
  for (const auto& [key, expected] : *value.dictionary()) {
    const Value* found = back->find(key);
    ASSERT_TRUE(found) << key;
    EXPECT_EQ(*found, expected) << key;
  }
  EXPECT_EQ(*back, value);
}

TEST(PropertyList, RefusesToWriteWhatXMLCannotHold) {
  Value deep = Array{};
  for (int i = 0; i < 512; ++i) deep = Array{deep};
  const std::pair<Value, const char*> cases[] = {
      {Value(), "a value of class NSNull cannot be written"},
      {Array{Error{"d", 1, {}}}, "a value of class NSError cannot be written"},
      {"a\x01", "text with the character U+0001 cannot be written"},
      {"a\0"s, "text with the character U+0000 cannot be written"},
      {"\uffff", "text with the character U+FFFF cannot be written"},
      {"\xff", "text that is not UTF-8 cannot be written"},
      {Dictionary{{"\x1b", 1}}, "text with the character U+001B cannot be written"},
      {deep, "nested deeper than 512 levels"},
  };
  for (const auto& [value, complaint] : cases) {
    const auto text = PropertyList::xml(value);
    ASSERT_FALSE(text) << complaint;
    EXPECT_EQ(text.error().localizedDescription(), std::string("property list: ") + complaint);
  }
}

TEST(PropertyList, ReadsXMLVariants) {
  const std::pair<std::string, Value> cases[] = {
      {"\xef\xbb\xbf" + plist("<string>a</string>"), "a"},
      {plist("<array><!-- <dict> --><string>a</string></array>"), Array{"a"}},
      {plist("<string><![CDATA[<dict> & ]]></string>"), "<dict> & "},
      {plist("<string>&#228;&#x20ac;&lt;</string>"), "\u00e4\u20ac<"},
      {plist("<dict><key>a</key><integer>-12</integer></dict>"), Dictionary{{"a", -12}}},
      {plist("<array/>"), Array{}},
      {plist("<string/>"), ""},
      {plist("<dict><key>a</key><true/></dict>") + "\xff\0<dict>"s, Dictionary{{"a", true}}},
      {"<?xml version='1.0'?><!DOCTYPE plist [ <!ELEMENT x (y)> ]><plist><true/></plist>", true},
  };
  for (const auto& [text, expected] : cases) {
    const auto value = read(text);
    ASSERT_TRUE(value) << text << ": " << value.error().localizedDescription();
    EXPECT_EQ(*value, expected) << text;
  }
  std::string wide = "\xff\xfe";
  for (const char c : plist("<string>w</string>")) wide += {c, '\0'};
  const auto value = read(wide);
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value("w"));
}

TEST(PropertyList, RefusesDamagedXML) {
  const auto nested = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "<array>";
    for (int i = 0; i < depth; ++i) text += "</array>";
    return plist(text);
  };
  std::string opened;
  for (int i = 0; i < 100000; ++i) opened += "<dict><key>a</key>";
  std::string escaped;
  for (int i = 0; i < 200000; ++i) escaped += "&amp;";
  struct Case {
    const char* name;
    std::string text;
    const char* complaint;
  };
  for (const Case& c : {
           Case{"cut off", "<plist>\n<dict><key>a", "line 2: the text ends inside <key>"},
           Case{"long and escaped", plist("<string>" + escaped + "</string>"),
                "a text is too long for so many escaped characters"},
           Case{"crossed", plist("\n<dict></array>"),
                "line 3: </array> closes nothing that is open"},
           Case{"unfinished tag", "<plist><dict a='>", "line 1: the tag that begins here"},
           Case{"unfinished comment", "<plist><!-- ", "line 1: the text ends inside <plist>"},
           Case{"no element", "<?xml version='1.0'?>", "line 1: there is no element"},
           Case{"deep", nested(513), "line 2: nested deeper than 512 levels"},
           Case{"very deep", nested(100000), "line 2: nested deeper than 512 levels"},
           Case{"very deep, open", plist(opened), "line 2: nested deeper than 512 levels"},
           Case{"unknown element", plist("<set/>"), ""},
           Case{"no value", plist(""), ""},
           Case{"not UTF-8", plist("<string>\xff</string>"), "text that is not UTF-8"},
       }) {
    SCOPED_TRACE(c.name);
    const auto value = read(c.text);
    ASSERT_FALSE(value);
    EXPECT_NE(value.error().localizedDescription().find(c.complaint), std::string::npos)
        << value.error().localizedDescription();
  }
  EXPECT_TRUE(read(nested(512)));
}

/// A dictionary of the numbers below `count`, each made a key.
template <class Key>
std::string dictionaryOf(unsigned count, Key key) {
  std::string text = "<dict>";
  for (unsigned i = 0; i < count; ++i) text += "<key>" + key(i) + "</key><true/>";
  return plist(text + "</dict>");
}

/// One of 65,536 texts that libplist's table keeps in one row.
std::string alike(unsigned number) {
  std::string key;
  for (int bit = 0; bit < 16; ++bit) key += number >> bit & 1 ? "BA" : "Ab";
  return key;
}

TEST(PropertyList, RefusesDictionariesThatTakeTooLongToFill) {
  const auto resource = [](unsigned i) {
    return "Assets/picture" + std::to_string(i) + "&amp;.png";
  };
  const auto big = read(dictionaryOf(100'000, resource));
  ASSERT_TRUE(big) << big.error().localizedDescription();
  EXPECT_EQ(big->dictionary()->size(), 100'000U);
  EXPECT_TRUE(big->find("Assets/picture99999&.png"));
  const std::pair<const char*, std::string> cases[] = {
      {"400000", dictionaryOf(400'000, [](unsigned i) { return std::to_string(i); })},
      {"3000", dictionaryOf(3000, alike)},
      {"3000", dictionaryOf(3000, [](unsigned i) { return "&#x41;<![CDATA[b]]>" + alike(i); })},
      {"4000", dictionaryOf(4000, [](unsigned i) { return std::to_string(i % 2000); })},
  };
  for (const auto& [count, text] : cases) {
    const auto value = read(text);
    ASSERT_FALSE(value) << count;
    EXPECT_EQ(value.error().localizedDescription(),
              "XML property list, line 2: the " + std::string(count) +
                  " keys of a dictionary are too many, repeated or too much alike");
  }
}

TEST(PropertyList, ReadsEveryBinaryKind) {
  const BinaryList list{{
      "\xac\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c",
      "\x08",
      "\x09",
      "\x10\xff",
      "\x13" + bigEndian(static_cast<std::uint64_t>(-2), 8),
      "\x14" + bigEndian(0, 8) + bigEndian(~std::uint64_t{0}, 8),
      "\x23" + doubleBits(-1.25),
      "\x33" + doubleBits(0.5),
      "\x43\x00\xff\x01"s,
      "\x53"
      "abc",
      "\x62\x00\xe4\x20\xac"s,
      "\x81\x01\x02"s,
      "\xd1\x09\x02",
  }};
  const auto value = read(list.bytes());
  ASSERT_TRUE(value) << value.error().localizedDescription();
  EXPECT_EQ(*value,
            Value(Array{false, true, 255, -2, ~std::uint64_t{0}, -1.25,
                        Date(std::chrono::microseconds(978307200500000)), Data("\0\xff\x01"s),
                        "abc", "\u00e4\u20ac", Value::UID{258}, Dictionary{{"abc", true}}}));
}

TEST(PropertyList, ReadsDistantBinaryDates) {
  const auto value = read(BinaryList{{"\x33" + doubleBits(63113904000)}}.bytes());
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value(Date(std::chrono::seconds(64092211200))));
  for (const double outside : {1e300, -1e300, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(read(BinaryList{{"\x33" + doubleBits(outside)}}.bytes()));
  }
}

TEST(PropertyList, SharedBinaryObjectsAreReadAtEachPlace) {
  const auto value = read(BinaryList{{"\xa2\x01\x01", "\xa1\x02", "\x51x"}}.bytes());
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, Value(Array{Array{"x"}, Array{"x"}}));
}

/// An array that holds the next one `width` times, `depth` times over.
std::string laughs(int depth, int width) {
  BinaryList list;
  list.referenceSize = 4;
  for (int i = 0; i < depth; ++i) {
    std::string object(1, static_cast<char>(0xa0 + width));
    for (int k = 0; k < width; ++k) object += bigEndian(static_cast<std::uint64_t>(i) + 1, 4);
    list.objects.push_back(object);
  }
  list.objects.emplace_back("\x51x");
  return list.bytes();
}

TEST(PropertyList, RefusesDamagedBinary) {
  const std::string whole = BinaryList{{"\xa1\x01", "\x51x"}}.bytes();
  struct Case {
    const char* name;
    std::string bytes;
    const char* complaint;
  };
  for (const Case& c : {
           Case{"header only", "bplist00", "shorter than its header and trailer"},
           Case{"contains itself", BinaryList{{"\xa1\x00"s}}.bytes(),
                "object 0 of 1 contains itself"},
           Case{"contains itself further down",
                BinaryList{{"\xa1\x01", "\xd1\x02\x00"s, "\x51x"}}.bytes(),
                "object 0 of 3 contains"},
           Case{"deep", laughs(513, 1), "nested deeper than 512 levels"},
           Case{"very deep", laughs(100000, 1), "nested deeper than 512 levels"},
           Case{"doubled 100 times", laughs(100, 2), "repeats shared objects too often"},
           Case{"missing child", BinaryList{{"\xa1\x07"}}.bytes(),
                "refers to the missing object 7"},
           Case{"missing top", BinaryList{{"\x08"}, 1}.bytes(), "the top object 1 of 1 is missing"},
           Case{"no objects", BinaryList{{}}.bytes(), "the top object 0 of 0 is missing"},
           Case{"huge count", BinaryList{{"\x08"}, 0, ~std::uint64_t{0}}.bytes(), "lies outside"},
           Case{"table outside", BinaryList{{"\x08"}, 0, 1, 1000}.bytes(), "lies outside"},
           Case{"table in the header", BinaryList{{"\x08"}, 0, 1, 2}.bytes(), "lies outside"},
           Case{"huge array", BinaryList{{"\xaf\x13" + bigEndian(~std::uint64_t{0}, 8)}}.bytes(),
                "more than there is room for"},
           Case{"huge text", BinaryList{{"\x6f\x13" + bigEndian(~std::uint64_t{0}, 8)}}.bytes(),
                "(marker 0x6f) is cut off"},
           Case{"length without a size", BinaryList{{"\x5f"}}.bytes(), "no readable length"},
           Case{"text cut off",
                BinaryList{{"\x59"
                            "abc"}}
                    .bytes(),
                "(marker 0x59) is cut off"},
           Case{"unknown type", BinaryList{{"\x70"}}.bytes(), "(marker 0x70) is cut off or of no"},
           Case{"null", BinaryList{{"\x00"s}}.bytes(), "(marker 0x00) is cut off or of no"},
           Case{"number as key", BinaryList{{"\xd1\x01\x01", "\x10\x01"}}.bytes(),
                "object 0 of 2 has a key that is no text"},
           Case{"zero in a key", BinaryList{{"\xd1\x01\x01", "\x52x\x00"s}}.bytes(),
                "object 0 of 2 has a key that is no text or holds a zero"},
           Case{"zero in a key of two-byte characters",
                BinaryList{{"\xd1\x01\x01", "\x62\x00x\x00\x00"s}}.bytes(),
                "object 0 of 2 has a key that is no text or holds a zero"},
           Case{"offset in the trailer",
                [&] {
                  std::string bytes = whole;
                  bytes[bytes.size() - 32 - 1] = '\x7f';
                  return bytes;
                }(),
                "object 1 of 2 lies outside"},
       }) {
    SCOPED_TRACE(c.name);
    const auto value = read(c.bytes);
    ASSERT_FALSE(value);
    EXPECT_NE(value.error().localizedDescription().find(c.complaint), std::string::npos)
        << value.error().localizedDescription();
  }
}

TEST(PropertyList, NoCutOrChangedByteDoesHarm) {
  const BinaryList list{{"\xd2\x01\x02\x03\x04", "\x51x", "\x51y",
                         "\x5f\x10\x03"
                         "abc",
                         "\xa2\x03\x05", "\x33" + doubleBits(1)}};
  const std::string texts[] = {list.bytes(), plist("<dict><key>a</key><data>AA==</data></dict>"),
                               R"({a = (<0a>, "\U00e4"); /* c */ b = 'x';})"};
  for (const std::string& text : texts) {
    ASSERT_TRUE(read(text));
    for (std::size_t i = 0; i < text.size(); ++i) {
      (void)read(std::string_view(text).substr(0, i));
      for (const char changed : {'\0', '\x01', '\x7f', '\xff', '<', '"'}) {
        std::string damaged = text;
        damaged[i] = changed;
        (void)read(damaged);
      }
    }
  }
}

}  // namespace
}  // namespace foundation
