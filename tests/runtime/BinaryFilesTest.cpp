#include <arrow/array.h>
#include <arrow/array/array_dict.h>
#include <arrow/io/memory.h>
#include <arrow/ipc/writer.h>
#include <arrow/json/from_string.h>
#include <arrow/table.h>
#include <arrow/type.h>
#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "column/allocate.h"
#include "kv/runtime/files.h"
#include "kv/runtime/ipc.h"
#include "kv/runtime/npy.h"
#include "runtime/readAll.h"
#include "source/BlockDatastore.h"
#include "source/ipc/ipcBlocks.h"
#include "source/registry/openSource.h"
#include "support/TempFolder.h"

namespace kv::runtime {

namespace {

using test::allTexts;
using test::allValues;
using test::readAll;
using test::stepErrorOf;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

template <class T>
T orThrow(arrow::Result<T> result) {
  checkArrow(result.status());
  return *std::move(result);
}

/// Batches of `rows` rows each of a number, a text and an encoded text.
std::string ipcBytes(bool isStream, const std::vector<int>& rows, int version = 0) {
  const auto type = arrow::dictionary(arrow::int8(), arrow::utf8());
  const auto schema = arrow::schema({arrow::field("x", arrow::int64()),
                                     arrow::field("t", arrow::utf8()), arrow::field("d", type)});
  const auto array = [](const auto& of, const std::string& json) {
    return orThrow(arrow::json::ArrayFromJSONString(of, json));
  };
  const auto whole = arrow::RecordBatch::Make(
      schema, 5,
      {array(arrow::int64(), version == 0 ? "[1, 2, 3, null, 5]" : "[9, 8, 7, 6, 5]"),
       array(arrow::utf8(), R"(["one", "two", null, "four", ""])"),
       orThrow(arrow::DictionaryArray::FromArrays(type, array(arrow::int8(), "[0, 1, 0, null, 1]"),
                                                  array(arrow::utf8(), R"(["red", "blue"])")))});
  const auto sink = orThrow(arrow::io::BufferOutputStream::Create());
  const auto writer = orThrow(isStream ? arrow::ipc::MakeStreamWriter(sink, schema)
                                       : arrow::ipc::MakeFileWriter(sink, schema));
  std::int64_t at = 0;
  for (const int count : rows) {
    checkArrow(writer->WriteRecordBatch(*whole->Slice(at, count)));
    at += count;
  }
  checkArrow(writer->Close());
  return orThrow(sink->Finish())->ToString();
}

std::string npyBytes(const std::string& header, const std::vector<double>& values) {
  std::string bytes("\x93NUMPY\x01\x00", 8);
  bytes += static_cast<char>(header.size());
  bytes += '\0';
  bytes += header;
  bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
  return bytes;
}

class BinaryFiles : public testing::Test {
 protected:
  /// Reads files that have one byte changed, or that end at one, and collects what happens.
  std::set<std::string> damaged(const std::string& good, const std::function<void()>& read) {
    std::set<std::string> ids;
    const auto attempt = [&](const std::string& bytes, std::size_t at) {
      folder_.writeAtRest("bad", bytes);
      try {
        read();
        ids.insert("read");
      } catch (const errors::StepError& error) {
        EXPECT_THAT(error.id(), StartsWith("KALVEX:datastore:")) << at;
        ids.insert(error.id().substr(error.id().rfind(':') + 1));
        // A changed schema may have other columns, which is no fault of the file.
        EXPECT_THAT(error.id() + error.what(),
                    AnyOf(HasSubstr(folder_.path("bad")), HasSubstr("Column")))
            << at;
      } catch (const std::bad_alloc&) {
        ids.insert("out of memory");
      }
    };
    for (std::size_t at = 0; at < good.size(); ++at) {
      if (at % 8 == 3) {
        attempt(good.substr(0, at), at);
      }
      for (const int change : {0x01, 0x80}) {
        std::string bytes = good;
        bytes[at] = static_cast<char>(bytes[at] ^ change);
        attempt(bytes, at);
      }
    }
    return ids;
  }

  kv::test::TempFolder folder_;
};

TEST_F(BinaryFiles, BatchesAreReadAsTheyAreCut) {
  for (const bool isStream : {false, true}) {
    const std::string path = folder_.write("f", ipcBytes(isStream, {2, 0, 1, 2}));
    const BlockDatastore cut(kIpcBlocks, std::vector{path}, {}, 1);
    EXPECT_EQ(cut.numPartitions(), isStream ? 1 : 4);
    for (const auto& source : {openSource(cut.describe()), openSource(cut.describeForSave())}) {
      EXPECT_EQ(source->fingerprint(), cut.fingerprint());
      EXPECT_TRUE(source->schema()[0].isNullable);
      std::vector<std::int64_t> rows;
      for (std::int64_t i = 0; i < source->numPartitions(); ++i) {
        rows.push_back(*source->knownRows(i));
      }
      EXPECT_THAT(rows, AnyOf(ElementsAre(5), ElementsAre(2, 0, 1, 2)));
      EXPECT_THAT(allTexts(*source, "t"), ElementsAre("one", "two", "<missing>", "four", ""));
      EXPECT_THAT(allTexts(*source, "d"), ElementsAre("red", "blue", "red", "<missing>", "blue"));
      std::int64_t seen = 0;
      readAll(*source, {}, [&](const Chunk& chunk) { seen += chunk.rows(); });
      EXPECT_EQ(seen, 5);
    }
    folder_.writeAtRest("f", ipcBytes(isStream, {2, 0, 1, 2}, 1));
    EXPECT_EQ(stepErrorOf([&] { allTexts(cut, "t"); }).id(), "KALVEX:datastore:SourceChanged");
  }
}

TEST_F(BinaryFiles, BatchesThatAreDamagedAreRefusedOrRead) {
  for (const bool isStream : {false, true}) {
    const auto ids = damaged(ipcBytes(isStream, {3, 2}), [this] {
      const auto source = openIpc({folder_.path("bad")});
      readAll(*source, {"x", "t", "d"}, [](const Chunk&) {});
    });
    EXPECT_TRUE(ids.contains("BadIpc") && ids.contains("BadColumnData"));
  }
}

TEST_F(BinaryFiles, ArraysThatAreDamagedAreRefusedOrRead) {
  const auto ids = damaged(
      npyBytes("{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }\n", {1, 2, 3, 4, 5, 6}),
      [this] {
        const auto source = openNpyTable({folder_.path("bad")});
        readAll(*source, {source->schema().back().name}, [](const Chunk&) {});
      });
  EXPECT_THAT(ids, ElementsAre("BadNpy", "read"));
}

TEST_F(BinaryFiles, ColumnsOfArraysAreInColumnMajorOrder) {
  for (const bool isFortran : {false, true}) {
    const std::string order = isFortran ? "True" : "False";
    const auto source = openNpyTable({folder_.writeAtRest(
        "a.npy", npyBytes("{'descr': '<f8', 'fortran_order': " + order + ", 'shape': (1, 2, 2)}",
                          {1, 2, 3, 4}))});
    std::vector<double> row;
    for (const ColumnInfo& column : source->schema()) {
      row.push_back(allValues<double>(*source, column.name).front());
    }
    EXPECT_EQ(row,
              isFortran ? std::vector<double>({1, 2, 3, 4}) : std::vector<double>({1, 3, 2, 4}));
  }
}

TEST_F(BinaryFiles, HeadersOfArraysAreReadExactly) {
  struct Case {
    const char* header;
    const char* fault;  ///< none if it is read
  };
  for (const auto& [header, fault] : std::vector<Case>{
           {"{\"shape\":(2,1),\"fortran_order\":True,\"descr\":\"=f8\"}", nullptr},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (2L,)}", nullptr},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': ()}", "single element"},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (3,)}", "needs 24 bytes"},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (2, 0)}", "elements in a row"},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (4611686018427387904, 8)}",
            "its shape is"},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (1, 99999999999)}", "its shape is"},
           {"{'descr': '<f8', 'fortran_order': False, 'shape': (-2,)}", "header is damaged"},
           {"{'descr': '<f8', 'fortran_order': False}", "header is damaged"},
           {"{'descr': '<c16', 'fortran_order': False, 'shape': (1,)}", "elements are <c16"},
           {"{'descr': '|O', 'fortran_order': False, 'shape': (2,)}", "elements are |O"},
           {"{'descr': '<M8[M]', 'fortran_order': False, 'shape': (2,)}", "elements are <M8[M]"},
           {"{'descr': [('a', '<f8')], 'fortran_order': False, 'shape': (2,)}", "[('a', '<f8')]"},
       }) {
    const std::string path = folder_.writeAtRest("a.npy", npyBytes(header, {1.5, 2.5}));
    if (fault == nullptr) {
      EXPECT_THAT(allValues<double>(*openFiles({{path}}), "column_1"), ElementsAre(1.5, 2.5));
    } else {
      const auto error = stepErrorOf([&] { openNpy({path}); });
      EXPECT_EQ(error.id(), "KALVEX:datastore:BadNpy");
      EXPECT_THAT(error.what(), HasSubstr(fault));
    }
  }
}

}  // namespace

}  // namespace kv::runtime
