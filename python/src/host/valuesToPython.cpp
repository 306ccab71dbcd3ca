#include "Function.h"
#include "Object.h"
#include "callables.h"
#include "pyObjects.h"
#include "texts.h"
#include "values.h"

namespace kv::python {

namespace {

nb::object charsToPython(const kxArray* value) {
  const std::u16string_view units = kxGetChars(value);
  const std::size_t rows = kxGetM(value);
  const std::size_t width = kxGetN(value);
  if (rows == 1 || (rows == 0 && width == 0)) {
    return toPython(units);
  }
  nb::list texts;
  for (std::size_t i = 0; i < rows; ++i) {
    std::u16string row;
    for (std::size_t j = 0; j < width; ++j) {
      row.push_back(units[j * rows + i]);
    }
    texts.append(toPython(row));
  }
  return known(Known::Chars)(texts);
}

nb::object textAt(const kxArray* strings, std::size_t index) {
  const auto text = Torvane::String::getString(strings, index);
  return text ? nb::object(toPython(*text)) : nb::none();
}

nb::tuple dimensionsOf(const kxArray* value) {
  nb::list dimensions;
  for (const std::size_t extent : kxGetDimensions(value)) {
    dimensions.append(extent);
  }
  return nb::tuple(dimensions);
}

/// The elements that `element` makes, column by column, with the shape.
template <class Element>
nb::tuple shaped(const kxArray* value, Element&& element) {
  nb::list elements;
  for (std::size_t i = 0; i < kxGetNumberOfElements(value); ++i) {
    elements.append(element(i));
  }
  return nb::make_tuple(elements, dimensionsOf(value));
}

nb::object stringsToPython(const kxArray* value) {
  if (kxIsScalar(value)) {
    if (const auto text = Torvane::String::getString(value, 0)) {
      return known(Known::String)(toPython(*text));
    }
  }
  const nb::tuple parts = shaped(value, [&](std::size_t i) { return textAt(value, i); });
  return known(Known::StringArray).attr("_from_columns")(parts[0], parts[1]);
}

nb::object cellToPython(const kxArray* value) {
  const nb::tuple parts =
      shaped(value, [&](std::size_t i) { return toPython(kxGetCell(value, i)); });
  return known(Known::Cell).attr("_from_columns")(parts[0], parts[1]);
}

nb::dict recordAt(const kxArray* value, std::size_t index) {
  nb::dict record;
  for (std::size_t i = 0; i < kxGetNumberOfFields(value); ++i) {
    const std::string_view field = kxGetFieldName(value, i);
    record[toPython(field)] = toPython(kxGetField(value, index, field));
  }
  return record;
}

nb::object structureToPython(const kxArray* value) {
  if (kxIsScalar(value)) {
    return recordAt(value, 0);
  }
  nb::list fields;
  for (std::size_t i = 0; i < kxGetNumberOfFields(value); ++i) {
    fields.append(toPython(kxGetFieldName(value, i)));
  }
  const nb::tuple parts = shaped(value, [&](std::size_t i) { return recordAt(value, i); });
  return known(Known::StructArray).attr("_from_columns")(parts[0], parts[1], fields);
}

nb::object objectAt(const kxArray* value, std::size_t index) {
  const kcos::COSInterfacePtr object = kcos::omGetArrayElement(value, index);
  return object.get() == nullptr
             ? nb::none()
             : Object::wrap(matrix::from_kalvex(kcos::omCreateKCOSScalar(object)));
}

nb::object objectsToPython(const kxArray* value) {
  if (const runtime::TimeArray* times = runtime::timesIn(value)) {
    return timesToPython(*times);
  }
  if (kxIsScalar(value) && kcos::omGetArrayElement(value, 0).get() != nullptr) {
    return Object::wrap(matrix::sharedCopy(value));
  }
  const nb::tuple parts = shaped(value, [&](std::size_t i) { return objectAt(value, i); });
  return known(Known::ObjectArray)
      .attr("_from_columns")(toPython(kxGetClassName(value)), parts[0], parts[1]);
}

nb::object functionToPython(const kxArray* value) {
  const nb::object callable = callableToPython(value);
  return callable.is_valid() ? callable : nb::cast(Function(value), nb::rv_policy::move);
}

}  // namespace

nb::object toPython(const kxArray* value) {
  const Nesting nesting;
  switch (kxGetClassID(value)) {
    case kxUNKNOWN_CLASS:
      return nb::none();
    case kxCHAR_CLASS:
      return charsToPython(value);
    case kxSTRING_CLASS:
      return stringsToPython(value);
    case kxCELL_CLASS:
      return cellToPython(value);
    case kxSTRUCT_CLASS:
      return structureToPython(value);
    case kxFUNCTION_CLASS:
      return functionToPython(value);
    case kxOBJECT_CLASS:
      return objectsToPython(value);
    default:
      return numbersToPython(value);
  }
}

}  // namespace kv::python
