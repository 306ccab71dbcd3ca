#pragma once

#include <string>

#include "ki/KalvexManagedPtr.h"
#include "kx/array.h"
#include "lazyeval/lazyGraph.h"

/// What of an array is saved, and how it comes back. An array is good in the release that saved it
/// and in no other: elsewhere a warning and an invalid array take its place.
namespace bigdata::lazyeval {

class LazyPartitionedArray;

/// The record of an array: a 1-by-1 structure with the fields "Version", the release as characters,
/// "ValueFuture" and "PartitionMetadata". Executor and preview aren't part of it.
///
/// Errors: those of the host's "version".
matrix::ArrayPtr makeArrayRecord(const LazyPartitionedArray& array);

/// The array that a record stands for, with the default executor of this session. A record of
/// another release, or of none, which stands for 2016b, gives the invalid array of that release,
/// whatever its other fields hold.
///
/// Errors:   "KALVEX:validateattributes:invalidType" for a record that is no structure; those of
///           "version", of the default executor and of "keepAlive"; of conversions, for a
///           field of the wrong class; of createInvalidVersionArray.
/// Warnings: "KALVEX:bigdata:array:InvalidTallVersion" with the release that saved it.
ki::KalvexManagedPtr<LazyPartitionedArray> loadArray(const kxArray* record);

/// What stands for an array that another release saved: the host's part of the class makes it.
///
/// Errors: an internal error if the class only declares the method; those of the method.
ki::KalvexManagedPtr<LazyPartitionedArray> createInvalidVersionArray(
    const std::u16string& savedVersion);

}  // namespace bigdata::lazyeval
