#pragma once

#include <string>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

/// What is saved of an array, and how it is restored. An array is valid only in the release that
/// saved it: any other release gives a warning and an invalid array instead.
namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// The record of an array: a 1-by-1 structure with the fields "Version", the release as characters,
/// "ValueFuture" and "PartitionMetadata". Executor and preview aren't part of it.
///
/// Errors: those of the host's "version".
matrix::ArrayPtr makeArrayRecord(const LazyPartitionedArray& array);

/// The array that a record describes, with this session's default executor. A record of another
/// release (2016b if it has no version) gives the invalid array of that release, whatever its other
/// fields contain.
///
/// Errors:   "KALVEX:validateattributes:invalidType" if the record isn't a structure; those of
///           "version", of the default executor and of "keepAlive"; those of conversions, for a
///           field of the wrong class; those of createInvalidVersionArray.
/// Warnings: "KALVEX:bigdata:array:InvalidTallVersion" with the release that saved it.
ki::KalvexManagedPtr<LazyPartitionedArray> loadArray(const kxArray* record);

/// The placeholder for an array that another release saved; the host's part of the class makes it.
///
/// Errors: an internal error if the class only declares the method; those of the method.
ki::KalvexManagedPtr<LazyPartitionedArray> createInvalidVersionArray(
    const std::u16string& savedVersion);

}  // namespace bigdata::lazyeval
