#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "foundation/PropertyList.h"

namespace corvane {
namespace {

using testing::HasSubstr;

Result<PropertyList> read(std::string_view text) {
  return readPropertyList(std::as_bytes(std::span(text)));
}

std::optional<Value> value(std::string_view text) {
  const auto list = read(text);
  return list ? std::optional(list->root) : std::nullopt;
}

/// The description of the error that `text` is read with; empty if it is none.
std::string failure(std::string_view text) {
  const auto list = read(text);
  if (list) return "";
  EXPECT_TRUE(list.error().is(NSCocoaErrorDomain, NSPropertyListReadCorruptError));
  return list.error().localizedDescription();
}

std::string xml(std::string_view content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
         "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
         std::string(content) + "</plist>\n";
}

std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) result += text;
  return result;
}

std::string bigEndian(std::uint64_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = size; i-- > 0;) bytes += static_cast<char>(value >> 8 * i & 0xFF);
  return bytes;
}

/// A binary property list of objects given as bytes, with one-byte references; the first is the
/// root.
std::string binary(const std::vector<std::string>& objects) {
  std::string bytes = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(bytes.size(), 4);
    bytes += object;
  }
  const std::size_t tableOffset = bytes.size();
  return bytes + table + std::string(6, '\0') + "\x04\x01" + bigEndian(objects.size(), 8) +
         bigEndian(0, 8) + bigEndian(tableOffset, 8);
}

Value everyKind() {
  return Dictionary{
      {"z first", "text"},
      {"a second", true},
      {"no", false},
      {"zero", 0},
      {"negative", -1},
      {"least", std::numeric_limits<std::int64_t>::min()},
      {"most", std::numeric_limits<std::int64_t>::max()},
      {"unsigned", std::numeric_limits<std::uint64_t>::max()},
      {"255", 255},
      {"256", 256},
      {"65536", 65536},
      {"4294967296", std::int64_t{4294967296}},
      {"tenth", 0.1},
      {"three", 3.0},
      {"tiny", 4.9406564584124654e-324},
      {"huge", std::numeric_limits<double>::max()},
      {"infinite", -std::numeric_limits<double>::infinity()},
      {"date", Date{-978307200}},
      {"far", Date{63113904000}},
      {"data", dataFromString(std::string("\0\xFF\x80 binary", 10))},
      {"long data", Data(1000, std::byte{0xA5})},
      {"empty data", Data()},
      {"empty", ""},
      {"<&>\"'", "a & b < c > d ]]> \r\n\t \xC3\xA4 \xE6\x97\xA5 \xF0\x9F\x98\x80"},
      {"\xC3\xA4", Array{1, "two", Array{}, Dictionary{}}},
      {"nested", Dictionary{{"x", Array{Dictionary{{"y", "same"}}, "same"}}}},
  };
}

class BothFormats : public testing::TestWithParam<PropertyListFormat> {};
INSTANTIATE_TEST_SUITE_P(PropertyListTest, BothFormats,
                         testing::Values(PropertyListFormat::XML, PropertyListFormat::Binary));

TEST_P(BothFormats, EveryKindComesBackAsItWas) {
  const auto written = writePropertyList(everyKind(), GetParam());
  ASSERT_TRUE(written);
  const auto result = readPropertyList(*written);
  ASSERT_TRUE(result) << result.error().localizedDescription();
  const PropertyList& list = *result;
  EXPECT_EQ(list.format, GetParam());
  const Value expected = everyKind();
  for (const auto& [key, expectedValue] : *expected.dictionary()) {
    const Value* found = list.root.dictionary()->find(key);
    ASSERT_NE(found, nullptr) << key;
    EXPECT_EQ(*found, expectedValue) << key;
  }
  EXPECT_EQ(list.root, expected);
  std::string order;
  std::string expectedOrder;
  for (const auto& [key, item] : *list.root.dictionary()) order += key + ",";
  for (const auto& [key, item] : *expected.dictionary()) expectedOrder += key + ",";
  EXPECT_EQ(order, expectedOrder);
}

TEST_P(BothFormats, AnErrorIsNotWritten) {
  const auto written = writePropertyList(Array{Error("domain", 1)}, GetParam());
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().code(), NSPropertyListWriteInvalidError);
}

TEST_P(BothFormats, MalformedTextIsNotWritten) {
  EXPECT_FALSE(writePropertyList("\xFF", GetParam()));
  EXPECT_FALSE(writePropertyList(Dictionary{{"\xC0\xAF", 1}}, GetParam()));
}

TEST_P(BothFormats, ValuesNestedBeyondTheBoundAreNotWritten) {
  Value value = 1;
  for (std::size_t i = 0; i < propertyListMaximumDepth; ++i) value = Array{std::move(value)};
  const auto written = writePropertyList(value, GetParam());
  ASSERT_TRUE(written);
  EXPECT_TRUE(readPropertyList(*written));
  EXPECT_FALSE(writePropertyList(Array{value}, GetParam()));
}

TEST_P(BothFormats, ATextBeyondTheBoundIsNotWritten) {
  const std::string text(propertyListMaximumBytes + 1, 'a');
  EXPECT_FALSE(writePropertyList(text, GetParam()));
}

/// Whether the value can be written; what is written has to come back.
bool isWritten(const Value& value, PropertyListFormat format) {
  const auto written = writePropertyList(value, format);
  if (!written) return false;
  const auto list = readPropertyList(*written);
  EXPECT_TRUE(list && list->root == value);
  return true;
}

/// Short enough that as many keys as there may be values fit into a file.
std::string shortKey(std::size_t number) {
  std::string key;
  do {
    key += static_cast<char>('a' + number % 26);
    number /= 26;
  } while (number > 0);
  return key;
}

TEST_P(BothFormats, WhatIsWrittenAroundTheBoundOfValuesIsRead) {
  for (const std::size_t total : {propertyListMaximumValues / 2 + 1, propertyListMaximumValues,
                                  propertyListMaximumValues + 1}) {
    Dictionary dictionary;
    for (std::size_t i = 0; i < total - 1; ++i) dictionary.append(shortKey(i), true);
    EXPECT_EQ(isWritten(std::move(dictionary), GetParam()), total <= propertyListMaximumValues)
        << total;
    EXPECT_EQ(isWritten(Array(total - 1, true), GetParam()), total <= propertyListMaximumValues)
        << total;
  }
}

TEST_P(BothFormats, WhatIsWrittenAroundTheBoundOfDepthIsRead) {
  const std::size_t most = propertyListMaximumDepth;
  for (const std::size_t depth : {most - 1, most, most + 1}) {
    Value value = 1;
    for (std::size_t i = 0; i < depth; ++i) {
      value = i % 2 == 0 ? Value(Array{std::move(value)}) : Value(Dictionary{{"k", value}});
    }
    EXPECT_EQ(isWritten(value, GetParam()), depth <= most) << depth;
  }
}

TEST_P(BothFormats, WhatIsWrittenAroundTheBoundOfBytesIsRead) {
  // Also texts that take less bytes in UTF-16 than here, and more.
  for (const std::string_view end : {"", "\xC3\xA4", "\xE6\x97\xA5"}) {
    const auto textOf = [end](std::size_t size) {
      return std::string(size - end.size(), 'a').append(end);
    };
    const std::size_t most = propertyListMaximumBytes;
    EXPECT_TRUE(isWritten(textOf(most / 2 - 100), GetParam()));
    isWritten(textOf(most - 500), GetParam());  // the format tells whether it can be
    EXPECT_FALSE(isWritten(textOf(most), GetParam()));
  }
}

TEST_P(BothFormats, ATextThatComesSeveralTimesCountsEachTime) {
  // Written once in the binary form, with two bytes for each character.
  const auto copies = [](std::size_t size) {
    return Array(3, std::string(size, 'a').append("\xC3\xA4"));
  };
  const std::size_t most = propertyListMaximumBytes / 3 - 2;
  EXPECT_TRUE(isWritten(copies(most - 100), GetParam()));
  EXPECT_FALSE(isWritten(copies(most + 1), GetParam()));
}

TEST_P(BothFormats, EveryListCutShortIsAnError) {
  const auto written = writePropertyList(everyKind(), GetParam());
  const Data& bytes = *written;
  // What is shorter than a signature is an old-style text; the last line feed of XML may be
  // missing.
  for (std::size_t size = 6; size + 1 < bytes.size(); ++size) {
    EXPECT_FALSE(readPropertyList(std::span(bytes).first(size))) << size;
  }
}

TEST(PropertyListTest, OnlyADictionaryIsReadAsOne) {
  const auto readText = [](std::string_view text) {
    return readDictionary(std::as_bytes(std::span(text)));
  };
  const auto dictionary = readText("{ key = text; }");
  ASSERT_TRUE(dictionary);
  EXPECT_EQ(*dictionary, (Dictionary{{"key", "text"}}));
  const auto array = readText("( text )");
  ASSERT_FALSE(array);
  EXPECT_THAT(array.error().localizedDescription(), HasSubstr("no dictionary"));
  const auto damaged = readText("{ key");
  ASSERT_FALSE(damaged);
  EXPECT_THAT(damaged.error().localizedDescription(), HasSubstr("lacks"));
}

TEST(PropertyListTest, ControlCharactersAreForTheBinaryFormOnly) {
  const Value value = std::string("a\0b\x01", 4);
  EXPECT_FALSE(writePropertyList(value, PropertyListFormat::XML));
  EXPECT_FALSE(writePropertyList("\xEF\xBF\xBE", PropertyListFormat::XML));
  const auto written = writePropertyList(value, PropertyListFormat::Binary);
  EXPECT_EQ(readPropertyList(*written)->root, value);
}

TEST(PropertyListTest, DatesThatXMLCannotTellAreForTheBinaryFormOnly) {
  for (const double seconds : {1e300, -1e12, std::nan("")}) {
    const Value value = Date{seconds};
    EXPECT_FALSE(writePropertyList(value, PropertyListFormat::XML));
    EXPECT_TRUE(writePropertyList(value, PropertyListFormat::Binary));
  }
}

TEST(PropertyListTest, FractionsOfSecondsAreKeptByTheBinaryForm) {
  const Value value = Date{-1.123456789};
  const auto binary = writePropertyList(value, PropertyListFormat::Binary);
  EXPECT_EQ(readPropertyList(*binary)->root, value);
  const auto text = writePropertyList(value, PropertyListFormat::XML);
  EXPECT_THAT(std::string(stringFromData(*text)), HasSubstr("<date>2000-12-31T23:59:58Z</date>"));
}

TEST(XMLPropertyListTest, NumbersAreReadAsTheyAreMeant) {
  EXPECT_EQ(value(xml("<integer> -0x10 </integer>")), Value(-16));
  EXPECT_EQ(value(xml("<integer>+7</integer>")), Value(7));
  EXPECT_EQ(value(xml("<integer>18446744073709551615</integer>")),
            Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(value(xml("<real>+1e3</real>")), Value(1000.0));
  EXPECT_TRUE(std::isnan(value(xml("<real>nan</real>"))->number()->doubleValue()));
  EXPECT_EQ(value(xml("<true/>")), Value(true));
}

TEST(XMLPropertyListTest, ADateMayLackItsSmallerUnits) {
  const Date day{9 * 365 * 86400.0 + 2 * 86400};  // 2010-01-01
  for (const char* text : {"2010Z", "2010-01Z", "2010-01-01Z", "2010-01-01T00Z",
                           "2010-01-01T00:00Z", " 2010-01-01T00:00:00Z\n"}) {
    EXPECT_EQ(value(xml("<date>" + std::string(text) + "</date>")), Value(day)) << text;
  }
  EXPECT_EQ(value(xml("<date>2010-01-02T03:04Z</date>")),
            Value(Date{day.secondsSinceReference + 86400 + 3 * 3600 + 4 * 60}));
}

TEST(XMLPropertyListTest, TextsAreBoundedInUTF8) {
  // A character of one byte in the file takes two.
  EXPECT_THAT(failure("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><string>" +
                      std::string(propertyListMaximumBytes / 2 + 1, '\xE4') + "</string>"),
              HasSubstr("too large"));
}

TEST(XMLPropertyListTest, TextIsReadWithItsReferencesAndSections) {
  EXPECT_EQ(value(xml("<string>a&amp;&#233;&#x1F600;<!-- no --><![CDATA[<x>]]> </string>")),
            Value("a&\xC3\xA9\xF0\x9F\x98\x80<x> "));
  EXPECT_EQ(value(xml("<string/>")), Value(""));
}

TEST(XMLPropertyListTest, AValueNeedsNoPlistElementAroundIt) {
  EXPECT_EQ(value("<array><integer>1</integer></array>"), Value(Array{1}));
  EXPECT_EQ(value("\n <string>x</string>"), Value("x"));
}

TEST(XMLPropertyListTest, UTF16WithAByteOrderMarkIsRead) {
  const std::string_view text = "<string>x</string>";
  std::string big = "\xFE\xFF";
  std::string little = "\xFF\xFE";
  for (const char character : text) {
    big += {'\0', character};
    little += {character, '\0'};
  }
  EXPECT_EQ(value(big), Value("x"));
  EXPECT_EQ(value(little), Value("x"));
}

TEST(XMLPropertyListTest, WhatIsDamagedIsAnErrorAndNotGuessed) {
  for (const char* content : {"",
                              "<integer/>",
                              "<integer>abc</integer>",
                              "<integer>1 2</integer>",
                              "<integer>18446744073709551616</integer>",
                              "<integer>-9223372036854775809</integer>",
                              "<integer>--1</integer>",
                              "<real>one</real>",
                              "<real>+-1</real>",
                              "<real>1e999</real>",
                              "<date>garbage</date>",
                              "<date>2010-13-01T00:00:00Z</date>",
                              "<date>2010-02-29T00:00:00Z</date>",
                              "<date>2010-01-01T24:00:00Z</date>",
                              "<date>2010-01-01</date>",
                              "<date>2010-01-01TZ</date>",
                              "<date>2010-</date>",
                              "<date>2010-1Z</date>",
                              "<date>2010-01-01T00:00:00</date>",
                              "<date>2010-01-01T00:00:00ZZ</date>",
                              "<date>Z</date>",
                              "<date>201Z</date>",
                              "<date/>",
                              "<data>!!</data>",
                              "<data>AAE</data>",
                              "<data>A===</data>",
                              "<data>AA=A</data>",
                              "<data>AAAA=</data>",
                              "<string>&foo;</string>",
                              "<string>&#0;</string>",
                              "<string>&#xD800;</string>",
                              "<string>\xFF</string>",
                              "<string>\x01</string>",
                              "<string><true/></string>",
                              "<foo/>",
                              "<true/><false/>",
                              "<true>x</true>",
                              "text",
                              "<array>text</array>",
                              "<array><key>a</key></array>",
                              "<array><string>x</array>",
                              "<array>",
                              "<dict><key>a</key></dict>",
                              "<dict><string>a</string></dict>",
                              "<dict><key>a</key><key>b</key></dict>",
                              "<dict><key>a</key><true/><key>a</key><true/></dict>",
                              "<plist><true/></plist>"}) {
    EXPECT_NE(failure(xml(content)), "") << content;
  }
}

TEST(XMLPropertyListTest, TheErrorTellsTheLineAndTheReason) {
  EXPECT_EQ(failure(xml("\n<date>never</date>")), "Line 4: a value is not what its element says.");
  EXPECT_THAT(failure(xml("<dict><key>k</key><true/><key>k</key><true/></dict>")),
              HasSubstr("the key \"k\" occurs twice"));
}

TEST(XMLPropertyListTest, DeclaredEntitiesAreRefused) {
  EXPECT_THAT(failure("<!DOCTYPE plist [<!ENTITY a \"b\"><!ENTITY c \"&a;&a;\">]>"
                      "<plist><string>&c;</string></plist>"),
              HasSubstr("no entities"));
  EXPECT_NE(failure("<!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>"
                    "<plist><string>&a;</string></plist>"),
            "");
}

TEST(XMLPropertyListTest, ValuesNestedDeeplyAreAnError) {
  const std::string array = repeated("<array>", 100'000) + repeated("</array>", 100'000);
  EXPECT_THAT(failure(xml(array)), HasSubstr("nested too deeply"));
  EXPECT_THAT(failure(xml(repeated("<dict><key>a</key>", 100'000))),
              HasSubstr("nested too deeply"));
  EXPECT_NE(failure(xml(repeated("<x>", 100'000))), "");
}

TEST(XMLPropertyListTest, AListFullOfReferencesTakesTimeInProportion) {
  const std::size_t count = 4'000'000;
  EXPECT_EQ(value(xml("<string>" + repeated("&amp;", count) + "</string>")),
            Value(std::string(count, '&')));
}

TEST(XMLPropertyListTest, TooManyBytesOrValuesAreAnError) {
  EXPECT_THAT(failure(xml("<string>" + std::string(std::size_t{100} << 20U, 'a') + "</string>")),
              HasSubstr("too large"));
  EXPECT_THAT(failure(xml("<array>" + repeated("<true/>", propertyListMaximumValues) + "</array>")),
              HasSubstr("too many values"));
}

TEST(BinaryPropertyListTest, WhatOtherWritersUseIsRead) {
  EXPECT_EQ(value(binary({"\x22" + bigEndian(0x3FC00000, 4)})), Value(1.5));
  EXPECT_EQ(value(binary({"\x14" + bigEndian(0, 8) + bigEndian(UINT64_MAX, 8)})),
            Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(value(binary({"\x14" + bigEndian(UINT64_MAX, 8) + bigEndian(UINT64_MAX, 8)})),
            Value(-1));
  EXPECT_EQ(value(binary({"\x72\xC3\xA4"})), Value("\xC3\xA4"));
  EXPECT_EQ(value(binary({std::string("\x80\x07")})), Value(Dictionary{{"CF$UID", 7}}));
}

TEST(BinaryPropertyListTest, TextsAreBoundedInUTF8) {
  // A character of two bytes in the file takes three.
  const std::uint32_t count = propertyListMaximumBytes / 3 + 1;
  EXPECT_THAT(failure(binary({"\x6F\x12" + bigEndian(count, 4) + repeated("\x65\xE5", count)})),
              HasSubstr("too large"));
}

TEST(BinaryPropertyListTest, AUIDIsWrittenAsOne) {
  const auto written = writePropertyList(Dictionary{{"CF$UID", 300}}, PropertyListFormat::Binary);
  EXPECT_THAT(std::string(stringFromData(*written)), HasSubstr("\x81\x01\x2C"));
}

TEST(BinaryPropertyListTest, CyclesAreAnError) {
  using namespace std::string_literals;
  EXPECT_THAT(failure(binary({"\xA1\x00"s})), HasSubstr("contains itself"));
  EXPECT_THAT(failure(binary({"\xA1\x01"s, "\xD1\x02\x00"s, "\x51k"s})),
              HasSubstr("contains itself"));
}

TEST(BinaryPropertyListTest, AListThatUnfoldsBeyondTheBoundsIsAnError) {
  // Twenty-four arrays, each of twice the next: 2^24 values in a hundred bytes.
  std::vector<std::string> doubling;
  for (char i = 1; i <= 24; ++i) doubling.push_back(std::string("\xA2") + i + i);
  doubling.emplace_back("\x09");
  EXPECT_THAT(failure(binary(doubling)), HasSubstr("too many values"));

  std::vector<std::string> texts = {
      "\xAF\x10\xFF" + std::string(255, '\1'),
      "\x5F\x12" + bigEndian(1U << 20U, 4) + std::string(1U << 20U, 'a')};
  EXPECT_THAT(failure(binary(texts)), HasSubstr("too large"));

  std::vector<std::string> deep;
  std::string bytes = "bplist00";
  std::string table;
  const std::uint64_t count = 100'000;
  for (std::uint64_t i = 0; i < count; ++i) {
    table += bigEndian(bytes.size(), 4);
    bytes += "\xA1" + bigEndian(i + 1 < count ? i + 1 : 0, 4);
  }
  const std::size_t tableOffset = bytes.size();
  EXPECT_THAT(failure(bytes + table + std::string(6, '\0') + "\x04\x04" + bigEndian(count, 8) +
                      bigEndian(0, 8) + bigEndian(tableOffset, 8)),
              HasSubstr("nested too deeply"));
}

TEST(BinaryPropertyListTest, WhatIsDamagedIsAnError) {
  using namespace std::string_literals;
  const std::vector<std::vector<std::string>> lists = {
      {"\x00"s},                          // null
      {"\x0F"s},                          // a filler
      {"\x15"s + std::string(32, '\0')},  // an integer of 32 bytes
      {"\x14"s + bigEndian(1, 8) + bigEndian(0, 8)},
      {"\x13\x00"s},  // cut short
      {"\x24"s + std::string(16, '\0')},
      {"\x32"s + std::string(4, '\0')},
      {"\x5F\x13"s + bigEndian(UINT64_MAX, 8)},
      {"\x6F\x13"s + bigEndian(UINT64_MAX / 2 + 1, 8)},
      {"\xAF\x13"s + bigEndian(UINT64_MAX, 8)},
      {"\xDF\x13"s + bigEndian(UINT64_MAX / 2 + 1, 8)},
      {"\x5F\x5F"s},      // a count that is no integer
      {"\x51\x80"s},      // no ASCII
      {"\x61\xD8\x00"s},  // half a surrogate pair
      {"\x71\xFF"s},      // no UTF-8
      {"\x88"s + std::string(9, '\0')},
      {"\xC0"s},                       // a set
      {"\xA1\x05"s},                   // no such object
      {"\xD1\x01\x01"s, "\x10\x01"s},  // a key that is a number
      {"\xD2\x01\x01\x01\x01"s, "\x51k"s},
  };
  for (const auto& list : lists) {
    EXPECT_NE(failure(binary(list)), "") << testing::PrintToString(list);
  }
}

TEST(BinaryPropertyListTest, ADamagedTrailerIsAnError) {
  const std::string sound = binary({"\x09"});
  ASSERT_EQ(value(sound), Value(true));
  const std::size_t trailer = sound.size() - 32;
  for (const std::size_t position : {6U, 7U, 8U, 16U, 24U}) {
    for (const char byte : {'\0', '\x09', '\xFF'}) {
      std::string damaged = sound;
      damaged[trailer + position] = byte;
      if (damaged == sound) continue;
      EXPECT_NE(failure(damaged), "") << position << " " << int(byte);
    }
  }
  EXPECT_NE(failure("bplist"), "");
}

TEST(BinaryPropertyListTest, TheVersionIsZeroAndADigit) {
  std::string list = binary({"\x09"});
  for (const char digit : {'0', '1', '9'}) {
    list[7] = digit;
    EXPECT_EQ(value(list), Value(true)) << digit;
  }
  for (const char other : {'\0', '/', ':', 'a', ' ', '\xFF'}) {
    list[7] = other;
    EXPECT_THAT(failure(list), HasSubstr("unknown version")) << int(other);
  }
  EXPECT_THAT(failure("bplist0"), HasSubstr("unknown version"));
  EXPECT_THAT(failure("bplist99" + std::string(40, '\0')), HasSubstr("unknown version"));
}

TEST(BinaryPropertyListTest, TheErrorTellsWhatIsDamaged) {
  // Each is one byte or one reference beyond what would be sound.
  EXPECT_THAT(failure("bplist00" + std::string(31, '\0')), HasSubstr("cut short"));
  EXPECT_THAT(failure(binary({"\xA1\x01"})), HasSubstr("leads to no object"));
  std::string list = binary({"\x09"});
  list.back() = '\x07';  // the table of offsets begins inside of the signature
  EXPECT_THAT(failure(list), HasSubstr("trailer"));
}

TEST(BinaryPropertyListTest, NoChangedByteMakesTheReaderFail) {
  const auto written = writePropertyList(everyKind(), PropertyListFormat::Binary);
  std::string bytes(stringFromData(*written));
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char sound = bytes[i];
    for (const int bits : {0x01, 0x10, 0x80, 0xFF}) {
      bytes[i] = static_cast<char>(sound ^ bits);
      const auto list = read(bytes);  // a list or an error: what counts is to get here
      if (list) {
        EXPECT_NE(list->root.className(), nullptr);
      }
    }
    bytes[i] = sound;
  }
}

}  // namespace
}  // namespace corvane
