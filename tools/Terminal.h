/// @file
/// Texts of others on a terminal: what is shown of them, how wide it is, in which colours.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

/// Makes the character functions follow the environment; before the first use of what stands below.
/// @return whether the terminal takes UTF-8.
bool UseLocaleOfUser();

bool IsTerminal();  ///< standard output

/// Columns of the terminal, or what COLUMNS says when it does not tell; nothing where output is no terminal:
/// lines may be of any length there.
std::optional<std::size_t> ColumnsOfUser();

/// Whether `text` may be coloured: on a terminal that can, unless NO_COLOR is set.
bool MayColor();

/// The text with everything escaped that would not show as a character: control characters (a terminal obeys
/// them), marks that reorder a line or cannot be seen, bytes that are no UTF-8. Escapes as in JSON, \xff for
/// single bytes.
/// @param ascii escapes everything else that is not ASCII too.
std::string Shown(std::string_view text, bool ascii);

enum class Style { kPlain, kStrong, kFaint, kWord, kNumber, kBad, kDoubtful };

struct Piece {
  std::string text;  ///< as Shown makes it
  Style style = Style::kPlain;
  bool mayShrink = false;  ///< a long one leaves room to what follows it
};
using Line = std::vector<Piece>;

struct Page {
  bool ascii = false;
  bool colors = false;
  std::optional<std::size_t> columns;  ///< no line is wider
};

/// One line without an end of line. Where it is too wide, pieces that may shrink share what the others leave,
/// and what is still too wide is cut at its end, all with an ellipsis.
std::string Rendered(Line line, const Page& page);

/// The text, of which the middle is left out when it has more than `columns` columns.
std::string Shortened(const std::string& text, std::size_t columns, bool ascii);

}  // namespace tool
