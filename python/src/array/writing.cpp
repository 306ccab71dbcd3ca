// What writes rows to files.

#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include <string>
#include <vector>

#include "array/arrayCalls.h"

namespace kv::python {

namespace {

/// Records the writing of a table or an array; gathering the result writes.
template <class Rows>
Array recordWrite(const ArraySession& self, const Rows& rows, const std::string& path,
                  const std::string& format, bool overwrite,
                  const std::vector<std::string>& partitionBy) {
  const WriteOptions options{
      .format = format, .overwrite = overwrite, .partitionBy = partitionBy, .compute = false};
  return inArrays(Line::Live, [&] { return self.session()->write(rows, path, options); });
}

}  // namespace

void bindWriting(nb::class_<ArraySession>& session) {
  session
      .def("write_table", recordWrite<Table>, nb::arg("table"), nb::arg("path"), nb::arg("format"),
           nb::arg("overwrite"), nb::arg("partition_by"))
      .def("write_array", recordWrite<Array>, nb::arg("array"), nb::arg("path"), nb::arg("format"),
           nb::arg("overwrite"), nb::arg("partition_by"));
}

}  // namespace kv::python
