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
    OperatorKind{"read", readRead},
    OperatorKind{"variable", readVariable},
    OperatorKind{"elementwise", readElementwise},
    OperatorKind{"callable", readCallable},
    OperatorKind{"filter", readPlain<makeFilter>},
    OperatorKind{"pass", readPlain<makePass>},
    OperatorKind{"spread", readPlain<makeSpread>},
    OperatorKind{"zip", readPlain<makeZip>},
    OperatorKind{"frame", readFrame},
    OperatorKind{"chunkwise", readChunkwise},
    OperatorKind{"partitionwise", readPlain<makePartitionwise>},
    OperatorKind{"generalPartitionwise", readPlain<makeGeneralPartitionwise>},
    OperatorKind{"aggregate", readAggregate},
    OperatorKind{"reduction", readPlain<makeReduction>},
    OperatorKind{"groups", readGroups},
    OperatorKind{"keyedReduction", readPlain<makeKeyedReduction>},
    OperatorKind{"repartition", readRepartition},
    OperatorKind{"head", readHead},
    OperatorKind{"deliver", readDeliver},
    OperatorKind{"write", readWrite},
    OperatorKind{"collect", readPlain<makeCollect>},
};

}  // namespace

OperatorPtr readOperator(ByteReader& bytes) {
  const std::string kind = bytes.text();
  const auto* row = std::ranges::find(kKinds, kind, &OperatorKind::kind);
  if (row == kKinds.end()) {
    bytes.refuse();
  }
  return row->read(bytes);
}

void writeOperator(const Operator& op, ByteWriter& bytes) {
  bytes.text(op.facts().kind);
  op.write(bytes);
}

}  // namespace kv::runtime
