#include "Utf8.h"

#include <array>

namespace tool {

Character Decode(std::string_view text) {
  struct Form {
    std::uint32_t mask, lead, smallest;
  };
  constexpr std::array<Form, 4> kForms = {
      {{0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}}};
  const auto first = static_cast<unsigned char>(text.front());
  for (std::size_t size = 1; size <= kForms.size(); ++size) {
    const Form& form = kForms[size - 1];
    if ((first & form.mask) != form.lead) continue;
    if (text.size() < size) return {};
    std::uint32_t code = first & ~form.mask;
    for (std::size_t i = 1; i < size; ++i) {
      const auto byte = static_cast<unsigned char>(text[i]);
      if ((byte & 0xc0U) != 0x80U) return {};
      code = (code << 6) | (byte & 0x3fU);
    }
    const bool valid = code >= form.smallest && code <= 0x10ffff && (code & 0xfffff800U) != 0xd800U;
    return valid ? Character{code, size} : Character{};
  }
  return {};
}

}  // namespace tool
