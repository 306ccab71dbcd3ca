#include "column/Validity.h"

#include <cassert>
#include <utility>

#include "column/elementTypes.h"

namespace kv::runtime {

Column nullableColumn(ElementType type, std::int64_t rows, std::shared_ptr<arrow::Buffer> elements,
                      NullBits nulls) {
  assert(isWhole(type));
  return Column(type,
                arrow::ArrayData::Make(arrowTypeOf(type), rows,
                                       {std::move(nulls.bits), std::move(elements)}, nulls.count))
      .asNullable();
}

}  // namespace kv::runtime
