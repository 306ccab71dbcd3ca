#include "formula/invisible.h"

#include <algorithm>
#include <iterator>

namespace kv::formula {

namespace {

struct Range {
  char32_t first, last;
};

// General categories Cc, Zl and Zp; the property Default_Ignorable_Code_Point (Unicode 15.1,
// DerivedCoreProperties.txt); and interlinear annotation. Ascending.
constexpr Range kInvisible[] = {
    {0x0000, 0x001F}, {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x034F, 0x034F},   {0x061C, 0x061C},
    {0x115F, 0x1160}, {0x17B4, 0x17B5},   {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},
    {0x2060, 0x206F}, {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFFB}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

}  // namespace

bool isInvisible(char32_t character) {
  const auto* const range = std::ranges::lower_bound(kInvisible, character, {}, &Range::last);
  return range != std::end(kInvisible) && character >= range->first;
}

}  // namespace kv::formula
