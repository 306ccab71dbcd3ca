#pragma once

#include "kx/array.h"
#include "optimizer/NodeNames.h"

/// A walked lazy graph as tables of the host.
namespace bigdata::optimizer {

/// A row a node, in order, with the variables "Name" (see NodeNames), "NodeObj" (its host object),
/// "IsClosure" and "OpType" (the operation's class, a `categorical`; undefined but for closures).
///
/// Errors: "KALVEX:class:InvalidHandle" for a deleted object; those of "categorical" and "table".
matrix::ArrayPtr makeNodeTable(const GraphNodes& nodes, NodeNames& names);

/// A row an edge, sorted by source and target in UTF-16 code units, each edge once, with the
/// variable "EndNodes": e-by-2 names.
///
/// Errors: as makeNodeTable.
matrix::ArrayPtr makeEdgeTable(const GraphNodes& nodes, NodeNames& names);

}  // namespace bigdata::optimizer
