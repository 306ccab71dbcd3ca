#include "operator/operators.h"

#include <algorithm>
#include <array>

namespace kv::runtime {

namespace {

template <OperatorPtr (*make)()>
OperatorPtr readPlain(ByteReader& /*bytes*/) {
  return make();
}

constexpr std::array kKinds{
    OperatorRow{"read", readRead},
    OperatorRow{"variable", readVariable},
    OperatorRow{"elementwise", readElementwise},
    OperatorRow{"callable", readCallable},
    OperatorRow{"filter", readPlain<makeFilter>},
    OperatorRow{"pass", readPlain<makePass>},
    OperatorRow{"spread", readPlain<makeSpread>},
    OperatorRow{"zip", readPlain<makeZip>},
    OperatorRow{"frame", readFrame},
    OperatorRow{"chunkwise", readChunkwise},
    OperatorRow{"partitionwise", readPlain<makePartitionwise>},
    OperatorRow{"generalPartitionwise", readPlain<makeGeneralPartitionwise>},
    OperatorRow{"aggregate", readAggregate},
    OperatorRow{"reduction", readPlain<makeReduction>},
    OperatorRow{"groups", readGroups},
    OperatorRow{"keyedReduction", readPlain<makeKeyedReduction>},
    OperatorRow{"repartition", readRepartition},
    OperatorRow{"head", readHead},
    OperatorRow{"deliver", readDeliver},
    OperatorRow{"write", readWrite},
    OperatorRow{"collect", readPlain<makeCollect>},
};

}  // namespace

OperatorPtr readOperator(ByteReader& bytes) {
  const std::string kind = bytes.text();
  const auto* row = std::ranges::find(kKinds, kind, &OperatorRow::name);
  if (row == kKinds.end()) {
    bytes.refuse();
  }
  return row->read(bytes);
}

void writeOperator(const Operator& op, ByteWriter& bytes) {
  bytes.text(op.facts().name);
  op.write(bytes);
}

}  // namespace kv::runtime
