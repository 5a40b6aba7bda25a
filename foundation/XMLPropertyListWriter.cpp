#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "foundation/PropertyListFormats.h"

namespace corvane {

namespace {

constexpr std::string_view head =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

class Writer {
 public:
  Result<Data> write(const Value& root) {
    _text = head;
    add(root);
    _text += "</plist>\n";
    if (_failure != nullptr) return propertyListWriteError(_failure);
    return dataFromString(_text);
  }

 private:
  void add(const Value& value) {
    if (const std::string* text = value.string()) {
      addElement("string", *text);
    } else if (const Number* number = value.number()) {
      add(*number);
    } else if (const Data* data = value.data()) {
      add(*data);
    } else if (const Date* date = value.date()) {
      add(*date);
    } else if (const Array* array = value.array()) {
      addContainer("array", array->empty(), [&] {
        for (const Value& item : *array) add(item);
      });
    } else if (const Dictionary* dictionary = value.dictionary()) {
      addContainer("dict", dictionary->empty(), [&] {
        for (const auto& [key, item] : *dictionary) {
          addElement("key", key);
          add(item);
        }
      });
    }
  }

  void add(const Number& number) {
    std::array<char, 64> digits{};
    const auto format = [&digits](auto value) {
      return std::string_view(
          digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
    };
    if (number.isBoolean()) {
      addLine(number.boolValue() ? "<true/>" : "<false/>");
    } else if (number.isUnsigned()) {
      addElement("integer", format(number.unsignedLongLongValue()));
    } else if (!number.isDouble()) {
      addElement("integer", format(number.longLongValue()));
    } else if (std::isinf(number.doubleValue())) {
      addElement("real", number.doubleValue() < 0 ? "-infinity" : "+infinity");
    } else if (std::isnan(number.doubleValue())) {
      addElement("real", "nan");
    } else {
      addElement("real", format(number.doubleValue()));
    }
  }

  void add(const Data& data) {
    constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr std::size_t bytesPerLine = 57;
    addLine("<data>");
    for (std::size_t line = 0; line < data.size(); line += bytesPerLine) {
      _text.append(_depth, '\t');
      const std::size_t end = std::min(line + bytesPerLine, data.size());
      for (std::size_t i = line; i < end; i += 3) {
        const std::size_t count = std::min<std::size_t>(3, end - i);
        unsigned group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
          group = group << 8U | (k < count ? std::to_integer<unsigned>(data[i + k]) : 0);
        }
        for (unsigned k = 0; k < 4; ++k) {
          _text += k <= count ? alphabet[group >> (18 - 6 * k) & 0x3FU] : '=';
        }
      }
      _text += '\n';
    }
    addLine("</data>");
  }

  void add(const Date& date) {
    using namespace std::chrono;
    constexpr sys_days reference = year(2001) / January / 1;
    constexpr auto least = duration<double>(sys_days(year(0) / January / 1) - reference);
    constexpr auto end = duration<double>(sys_days(year(10000) / January / 1) - reference);
    const double time = date.secondsSinceReference;
    if (!(time >= least.count() && time < end.count())) {
      _failure = "A date is outside of the years that XML can tell.";
      return;
    }
    const sys_seconds point = reference + seconds(std::llround(std::floor(time)));
    const auto days = floor<std::chrono::days>(point);
    const year_month_day day(days);
    const hh_mm_ss<seconds> clock(point - days);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", int(day.year()),
                  unsigned(day.month()), unsigned(day.day()), int(clock.hours().count()),
                  int(clock.minutes().count()), int(clock.seconds().count()));
    addElement("date", text.data());
  }

  template <typename Content>
  void addContainer(std::string_view name, bool isEmpty, Content content) {
    if (isEmpty) return addLine("<" + std::string(name) + "/>");
    addLine("<" + std::string(name) + ">");
    ++_depth;
    content();
    --_depth;
    addLine("</" + std::string(name) + ">");
  }

  void addLine(std::string_view line) { _text.append(_depth, '\t').append(line) += '\n'; }

  void addElement(std::string_view name, std::string_view content) {
    _text.append(_depth, '\t').append("<").append(name) += '>';
    addEscaped(content);
    _text.append("</").append(name).append(">\n");
  }

  void addEscaped(std::string_view content) {
    // The two characters past U+FFFD that XML excludes, as UTF-8.
    if (content.find("\xEF\xBF\xBE") != std::string_view::npos ||
        content.find("\xEF\xBF\xBF") != std::string_view::npos) {
      _failure = "A text has a character that XML cannot hold.";
    }
    for (const char character : content) {
      if (character == '&') {
        _text += "&amp;";
      } else if (character == '<') {
        _text += "&lt;";
      } else if (character == '>') {
        _text += "&gt;";
      } else if (character == '\r') {
        _text += "&#13;";  // a reader would make a line feed of the character itself
      } else {
        if (static_cast<unsigned char>(character) < 0x20 && character != '\t' &&
            character != '\n') {
          _failure = "A text has a character that XML cannot hold.";
        }
        _text += character;
      }
    }
  }

  std::string _text;
  std::size_t _depth = 0;
  const char* _failure = nullptr;
};

}  // namespace

Result<Data> writeXMLPropertyList(const Value& root) {
  return Writer().write(root);
}

}  // namespace corvane
