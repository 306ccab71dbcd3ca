#include <gtest/gtest.h>

#include <cstdio>

#include "runtime/RuntimeSession.h"
#include "support/Worlds.h"

namespace kv::runtime::test {

namespace {

/// What a program does in a session: records, evaluates, fails, saves and loads, keeps something
/// over the end.
Value useSession(host::Session& session, const std::string& path) {
  const host::Session::Scope scope(session);
  const std::vector<std::string> paths{path};
  const Value source = host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
  const Value table = host::call("createFromDatastoreBuiltin", {source.get()});
  const Value rows = host::makeChars(":");
  const Value name = host::makeChars("x");
  const Value content = host::makeLogical(true);
  const Value x =
      host::call("subsrefTabularVar", {rows.get(), name.get(), content.get(), table.get()});
  const Value plus = host::makeFunctionHandle("kv.element.plus");
  const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
  const Value twice = host::call("elementfun", {plus.get(), x.get(), x.get()});
  const Value total = host::call("aggregatefun", {sum.get(), sum.get(), twice.get()});
  EXPECT_EQ(kxGetScalar(host::call("gather", {total.get()}).get()), 6);
  const Value fails = host::makeFunctionHandle(
      "fails", [](const host::Call&) { host::raiseWithMessage("my:error", "no"); });
  const Value failing = host::call("elementfun", {fails.get(), x.get()});
  EXPECT_THROW(host::call("gather", {failing.get()}), Torvane::KException::KExceptionEnvelope);
  EXPECT_THROW(host::call("no.such.function"), Torvane::KException::KExceptionEnvelope);
  const Value loaded = session.loadBytes(session.saveBytes(failing.get()), false);
  EXPECT_THROW(host::call("gather", {loaded.get()}), Torvane::KException::KExceptionEnvelope);
  EXPECT_THROW(session.loadBytes("not a file", true), Torvane::KException::KExceptionEnvelope);
  session.deleteObject(twice.get());
  return matrix::sharedCopy(failing.get());
}

TEST(Leaks, NothingIsLeftOfSessionsThatWereUsedAndClosed) {
  const TempFolder folder;
  const std::string path = folder.write("x.csv", "x\n1\n2\n");
  const host::Ledger before = host::ledger();
  for (std::size_t i = 0; i < kv::test::sizes().sessions; ++i) {
    Value outliving;
    {
      host::Session session;
      load(session);
      outliving = useSession(session, path);
      session.close();
    }
  }
  const host::Ledger after = host::ledger();
  std::printf(
      "leaks: %zu sessions; left behind: %zu objects, %zu arrays, %zu payloads, %zu bytes\n",
      kv::test::sizes().sessions, after.objects - before.objects, after.arrays - before.arrays,
      after.payloads - before.payloads, after.payloadBytes - before.payloadBytes);
  EXPECT_EQ(after.objects, before.objects);
  EXPECT_EQ(after.arrays, before.arrays);
  EXPECT_EQ(after.payloads, before.payloads);
  EXPECT_EQ(after.payloadBytes, before.payloadBytes);
}

}  // namespace
}  // namespace kv::runtime::test
