#include "bench/support/WireMessage.h"

#include <cstddef>

#include "operations/OperationCodes.h"
#include "platform/linux/transport/HelperMessages.h"

namespace corvane::bench {

namespace {

// Values one after the other, each where its type has it begin.
class Marshalled {
 public:
  std::string& bytes() { return _bytes; }

  void align(std::size_t to) { _bytes.resize((_bytes.size() + to - 1) / to * to); }
  void byte(int value) { _bytes.push_back(static_cast<char>(value)); }
  template <typename Number>
  void number(Number value) {
    align(sizeof(value));
    _bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
  }
  void text(const std::string& value) {
    number(static_cast<std::uint32_t>(value.size()));
    _bytes.append(value).push_back('\0');
  }
  void signature(const std::string& value) {
    byte(static_cast<int>(value.size()));
    _bytes.append(value).push_back('\0');
  }
  // An array, whose elements begin at multiples of `alignment` and are what `content` appends.
  template <typename Content>
  void array(std::size_t alignment, const Content& content) {
    number(std::uint32_t{0});
    const std::size_t sizeAt = _bytes.size() - sizeof(std::uint32_t);
    align(alignment);
    const std::size_t begin = _bytes.size();
    content();
    const auto size = static_cast<std::uint32_t>(_bytes.size() - begin);
    _bytes.replace(sizeAt, sizeof(size), reinterpret_cast<const char*>(&size), sizeof(size));
  }

 private:
  std::string _bytes;
};

std::string call(const std::string& member, const std::string& signature, const std::string& body,
                 std::uint32_t descriptors = 0) {
  Marshalled message;
  message.byte('l');
  message.byte(1);  // a call
  message.byte(0);
  message.byte(1);  // version
  message.number(static_cast<std::uint32_t>(body.size()));
  message.number(std::uint32_t{1});
  message.array(8, [&] {
    const auto field = [&](int code, const char* type) {
      message.align(8);
      message.byte(code);
      message.signature(type);
    };
    field(1, "o");
    message.text(helperObjectPath);
    field(2, "s");
    message.text("com.corvane.ZELPrivilegedHelperProtocol");
    field(3, "s");
    message.text(member);
    if (!signature.empty()) {
      field(8, "g");
      message.signature(signature);
    }
    if (descriptors > 0) {
      field(9, "u");
      message.number(descriptors);
    }
  });
  message.align(8);
  return message.bytes() + body;
}

template <typename Arguments>
std::string callOfOperation(std::uint64_t code, const Data& form, std::uint32_t descriptors,
                            const Arguments& appendArguments) {
  Marshalled body;
  body.number(code);
  body.number(static_cast<std::uint32_t>(form.size()));
  body.bytes().append(reinterpret_cast<const char*>(form.data()), form.size());
  body.array(4, [&] {
    for (std::uint32_t index = 0; index < descriptors; ++index) body.number(index);
  });
  body.array(4, [&] { body.array(1, [&] { appendArguments(body); }); });
  return call(performMember.name, performMember.call, body.bytes(), descriptors);
}

}  // namespace

std::string callOf(const std::string& member) {
  return call(member, "", "");
}

std::string callWithNumber(const std::string& member, std::int32_t number) {
  Marshalled body;
  body.number(number);
  return call(member, "i", body.bytes());
}

std::string callOfOperation(std::uint64_t code, const Data& form) {
  return callOfOperation(code, form, 0, [](Marshalled&) {});
}

std::string callOfNop(const Data& form, std::uint32_t descriptors) {
  return callOfOperation(codeNop, form, descriptors, [](Marshalled&) {});
}

std::string callOfNopWithDictionary(const Data& form, int entries) {
  return callOfOperation(codeNop, form, 0, [entries](Marshalled& body) {
    body.signature("a{sv}");
    body.array(8, [&] {
      for (int entry = 0; entry < entries; ++entry) {
        body.align(8);
        body.text("key " + std::to_string(1000000 + entry));
        body.signature("s");
        body.text("some text");
      }
    });
  });
}

}  // namespace corvane::bench
