#pragma once

#include "kx/array.h"
#include "optimizer/NodeNames.h"

/// A walked lazy graph as tables of the host.
namespace bigdata::optimizer {

/// One row per node, in order, with the variables "Name" (see NodeNames), "NodeObj" (its host
/// object), "IsClosure" and "OpType" (the operation's class, a `categorical`; undefined if the node
/// isn't a closure).
///
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object; those of "categorical" and "table".
matrix::ArrayPtr makeNodeTable(const GraphNodes& nodes, NodeNames& names);

/// One row per edge, sorted by source and target in UTF-16 code units, without duplicates, with the
/// variable "EndNodes": e-by-2 names.
///
/// Errors: as for makeNodeTable.
matrix::ArrayPtr makeEdgeTable(const GraphNodes& nodes, NodeNames& names);

}  // namespace bigdata::optimizer
