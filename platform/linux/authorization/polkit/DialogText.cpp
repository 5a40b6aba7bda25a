#include "platform/linux/authorization/polkit/DialogText.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <optional>

#include "foundation/Unicode.h"

namespace corvane {

namespace {

constexpr char32_t ellipsis = 0x2026;

struct Range {
  char32_t first;
  char32_t last;
};

// What moves, hides or ends text without being seen, and what changes how its neighbours look.
constexpr Range spacing[] = {{0x0, 0x20},      {0x7F, 0xA0},     {0x1680, 0x1680},
                             {0x2000, 0x200A}, {0x2028, 0x2029}, {0x202F, 0x202F},
                             {0x205F, 0x205F}, {0x3000, 0x3000}};
constexpr Range invisible[] = {
    {0xAD, 0xAD},       {0x34F, 0x34F},     {0x600, 0x605},     {0x61C, 0x61C},
    {0x6DD, 0x6DD},     {0x70F, 0x70F},     {0x890, 0x891},     {0x8E2, 0x8E2},
    {0x115F, 0x1160},   {0x17B4, 0x17B5},   {0x180B, 0x180F},   {0x200B, 0x200F},
    {0x202A, 0x202E},   {0x2060, 0x206F},   {0x3164, 0x3164},   {0xFE00, 0xFE0F},
    {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},   {0xFFF0, 0xFFFB},   {0x110BD, 0x110BD},
    {0x110CD, 0x110CD}, {0x13430, 0x13438}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A},
    {0xE0000, 0xE0FFF}};

template <std::size_t count>
bool isIn(const Range (&ranges)[count], char32_t character) {
  return std::any_of(std::begin(ranges), std::end(ranges), [character](Range range) {
    return character >= range.first && character <= range.last;
  });
}

// Some agents read the text as markup, others show it as it is. So characters of markup are
// replaced by look-alikes: they mean nothing to the first and look the same with the others. A
// dollar sign would begin a reference to a detail of the request.
char32_t harmless(char32_t character) {
  switch (character) {
    case '<':
      return 0x2039;
    case '>':
      return 0x203A;
    case '&':
      return 0xFF06;
    case '$':
      return 0xFF04;
    default:
      return character;
  }
}

}  // namespace

std::string dialogText(std::string_view clientText) {
  std::string text;
  std::size_t length = 0;
  bool isSpacePending = false;
  while (!clientText.empty()) {
    const char32_t character = takeCharacter(clientText);
    if (isIn(invisible, character)) continue;
    if (isIn(spacing, character)) {
      isSpacePending = !text.empty();
      continue;
    }
    if (length + (isSpacePending ? 2 : 1) >= dialogTextLimit) {
      appendUTF8(text, ellipsis);
      break;
    }
    if (isSpacePending) {
      text += ' ';
      ++length;
      isSpacePending = false;
    }
    appendUTF8(text, harmless(character));
    ++length;
  }
  return text;
}

std::string dialogIcon(std::string_view clientIcon) {
  if (clientIcon.size() >= PATH_MAX) return {};
  for (std::string_view rest = clientIcon; !rest.empty();) {
    const std::optional<char32_t> character = takeUTF8Character(rest);
    const bool isPlain = character && !isIn(invisible, *character) &&
                         (*character == ' ' || !isIn(spacing, *character)) &&
                         harmless(*character) == *character;
    if (!isPlain) return {};
  }
  return std::string(clientIcon);
}

}  // namespace corvane
