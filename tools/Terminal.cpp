#include "Terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "Utf8.h"

namespace tool {

namespace {

// Less than nothing for what is no character to be seen.
int WidthOf(std::uint32_t code) {
  return ::wcwidth(static_cast<wchar_t>(code));
}

struct Range {
  std::uint32_t first, last;
};
// Characters of no width that make a text another one than it looks, or a line stand in another order. The
// joiner of emoji is among them: terminals differ in the width of what it joins.
constexpr Range kUnseen[] = {{0xAD, 0xAD},     {0x34F, 0x34F},    {0x61C, 0x61C},   {0x180E, 0x180E},
                             {0x200B, 0x200F}, {0x2028, 0x202E},  {0x2060, 0x206F}, {0xFEFF, 0xFEFF},
                             {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};

bool IsUnseen(std::uint32_t code) {
  return std::any_of(std::begin(kUnseen), std::end(kUnseen),
                     [=](const Range& range) { return code >= range.first && code <= range.last; });
}

std::string Hex(const char* format, std::uint16_t unit) {
  char text[sizeof "\\uffff"];
  std::snprintf(text, sizeof text, format, unit);
  return text;
}

std::string Escaped(std::uint32_t code) {
  constexpr const char* kUnit = "\\u%04x";
  if (code < 0x10000U) return Hex(kUnit, static_cast<std::uint16_t>(code));
  const std::uint32_t rest = code - 0x10000U;
  return Hex(kUnit, static_cast<std::uint16_t>(0xD800U | (rest >> 10U))) +
         Hex(kUnit, static_cast<std::uint16_t>(0xDC00U | (rest & 0x3FFU)));
}

bool ShowsAsIs(std::uint32_t code, bool ascii) {
  if (code < 0x80) return code >= ' ' && code != 0x7F;
  return !ascii && WidthOf(code) >= 0 && !IsUnseen(code);
}

// As much of the front as fits, with the marks that combine with its last character.
struct Front {
  std::size_t bytes = 0;
  std::size_t columns = 0;
};
Front FrontOf(std::string_view text, std::size_t columns) {
  Front front;
  while (front.bytes < text.size()) {
    const Character character = Decode(text.substr(front.bytes));
    const auto width = static_cast<std::size_t>(std::max(WidthOf(character.code), 0));
    if (front.columns + width > columns) break;
    front.columns += width;
    front.bytes += std::max<std::size_t>(character.size, 1);
  }
  return front;
}

std::size_t ColumnsOf(std::string_view text) {
  return FrontOf(text, text.size()).columns;  // no character has more columns than bytes
}

std::string_view Ellipsis(bool ascii) {
  return ascii ? "..." : "…";
}

// The front of a text that is wider, with an ellipsis, or with as much of that as fits.
std::string Cut(const std::string& text, std::size_t columns, bool ascii) {
  if (ColumnsOf(text) <= columns) return text;
  const std::string_view ellipsis = Ellipsis(ascii);
  const Front end = FrontOf(ellipsis, columns);
  return text.substr(0, FrontOf(text, columns - end.columns).bytes).append(ellipsis, 0, end.bytes);
}

// Below this a text says nothing any more; the line is cut at its end rather.
constexpr std::size_t kLeastShrunk = 10;

std::size_t ColumnsOf(const Line& line) {
  std::size_t columns = 0;
  for (const Piece& piece : line) columns += ColumnsOf(piece.text);
  return columns;
}

// The shortest come first, so that what they do not need is left to the longer ones.
void Shrink(Line& line, const Page& page) {
  std::vector<Piece*> pieces;
  for (Piece& piece : line) {
    if (piece.mayShrink) pieces.push_back(&piece);
  }
  const auto isShorter = [](const Piece* left, const Piece* right) {
    return ColumnsOf(left->text) < ColumnsOf(right->text);
  };
  std::sort(pieces.begin(), pieces.end(), isShorter);
  std::size_t taken = ColumnsOf(line);
  for (const Piece* piece : pieces) taken -= ColumnsOf(piece->text);
  std::size_t room = *page.columns - std::min(taken, *page.columns);
  std::size_t count = pieces.size();
  for (Piece* piece : pieces) {
    piece->text = Cut(piece->text, std::max(room / count--, kLeastShrunk), page.ascii);
    room -= std::min(room, ColumnsOf(piece->text));
  }
}

void CutEnd(Line& line, const Page& page) {
  if (ColumnsOf(line) <= *page.columns) return;
  const std::string_view ellipsis = Ellipsis(page.ascii);
  const Front end = FrontOf(ellipsis, *page.columns);
  std::size_t left = *page.columns - end.columns;
  auto piece = line.begin();
  for (; piece != line.end(); ++piece) {
    const Front front = FrontOf(piece->text, left);
    left -= front.columns;
    if (front.bytes == piece->text.size()) continue;
    piece->text.resize(front.bytes);
    break;
  }
  line.erase(piece + 1, line.end());
  line.push_back({std::string(ellipsis.substr(0, end.bytes))});
}

const char* SequenceOf(Style style) {
  switch (style) {
    case Style::kStrong:
      return "\x1b[1m";
    case Style::kFaint:
      return "\x1b[2m";
    case Style::kWord:
      return "\x1b[36m";
    case Style::kNumber:
      return "\x1b[33m";
    case Style::kBad:
      return "\x1b[31m";
    case Style::kDoubtful:
      return "\x1b[35m";
    case Style::kPlain:
      break;
  }
  return "";
}

std::string Colored(std::string_view text, Style style, const Page& page) {
  const char* const sequence = SequenceOf(style);
  if (!page.colors || *sequence == '\0' || text.empty()) return std::string(text);
  return std::string(sequence).append(text).append("\x1b[0m");
}

}  // namespace

bool UseLocaleOfUser() {
  std::setlocale(LC_CTYPE, "");
  return std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0;
}

bool IsTerminal() {
  return ::isatty(STDOUT_FILENO) == 1;
}

std::optional<std::size_t> ColumnsOfUser() {
  if (!IsTerminal()) return std::nullopt;
  winsize size = {};
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
  const char* const columns = std::getenv("COLUMNS");
  const unsigned long said = columns == nullptr ? 0 : std::strtoul(columns, nullptr, 10);
  return said == 0 ? std::nullopt : std::optional<std::size_t>(said);
}

bool MayColor() {
  const char* const refused = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isDumb = terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
  return IsTerminal() && !isDumb && (refused == nullptr || *refused == '\0');
}

std::string Shown(std::string_view text, bool ascii) {
  std::string shown;
  while (!text.empty()) {
    const Character character = Decode(text);
    const std::size_t size = std::max<std::size_t>(character.size, 1);
    if (character.size == 0) {
      shown += Hex("\\x%02x", static_cast<unsigned char>(text.front()));
    } else if (ShowsAsIs(character.code, ascii)) {
      shown.append(text, 0, size);
    } else {
      shown += Escaped(character.code);
    }
    text.remove_prefix(size);
  }
  return shown;
}

std::string Rendered(Line line, const Page& page) {
  if (page.columns && ColumnsOf(line) > *page.columns) {
    Shrink(line, page);
    CutEnd(line, page);
  }
  std::string text;
  for (const Piece& piece : line) text += Colored(piece.text, piece.style, page);
  return text;
}

std::string Shortened(const std::string& text, std::size_t columns, bool ascii) {
  const std::size_t needed = ColumnsOf(text);
  if (needed <= columns) return text;
  const Front front = FrontOf(text, columns / 2);
  return text.substr(0, front.bytes)
      .append(Ellipsis(ascii))
      .append(text, FrontOf(text, needed - columns / 2).bytes);
}

}  // namespace tool
