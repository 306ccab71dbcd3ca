quiet fixed = @executor.FixedNumPartitionStrategy($1)
quiet arbitrary = @executor.ArbitraryPartitionStrategy()
quiet broadcast = @executor.BroadcastPartitionStrategy()
stub @executor.SimplePartition = {$1, $2}
stub `kalvex.io.datastore.internal.shim.isDatastore` = isFolder($1)
quiet isFolder = false
stub @executor.DatastorePartitionStrategy = fixed(11)
stub @executor.ConcatenatedPartitionStrategy = fixed(12)
three = fixed(3)

== Arbitrary
a = arbitrary()
a.MinNumPartitions => 1
a.MaxNumPartitions => inf
a.getMinNumPartitions() => 1
a.getMaxNumPartitions() => inf
a.IsBroadcast => false
a.IsDatastorePartitioning => false
a.MaxNumReadFailures => 0
a.isKnownSinglePartition() => false
a.allowsSinglePartition() => true
a.isResolved() => false
a.numpartitions() => 1
a.numpartitions(12) => 12
a.numpartitions(0) => 1
a.resolve(8, 4, true).MinNumPartitions => 4
a.resolve(8, 40, true).MinNumPartitions => 8
a.resolve(0, 0, true).MinNumPartitions => 1
a.createPartition(1, 1) => {1 1}
a.createPartition(5, 5) => {5 5}
a.createPartition(0, 5) => ! PartitionIndex used for this is 0 when it must be between 1 and 5
a.createPartition(6, 5) => ! PartitionIndex used for this is 6 when it must be between 1 and 5
a.fixNumPartitions(3).MinNumPartitions => 3
a.fixNumPartitions(0) => ! FixedNumPartitionStrategy constructed with NumPartitions 0when this must be >= 0.
a.isCompatible(arbitrary()) => true

== Broadcast
b = broadcast()
b.MinNumPartitions => 1
b.MaxNumPartitions => 1
b.getMaxNumPartitions() => 1
b.IsBroadcast => true
b.IsDatastorePartitioning => false
b.MaxNumReadFailures => 0
b.isKnownSinglePartition() => true
b.allowsSinglePartition() => true
b.isResolved() => true
b.resolve(8, 4, false) => same b
b.createPartition(1, 1) => {1 1}
b.createPartition(2, 2) => ! PartitionIndex used for broadcast partition is 2 when it must be 1.
b.createPartition(1, 2) => ! NumPartitions used for broadcast partition is 2 when it must be 1.
b.fixNumPartitions(1) => same b
b.fixNumPartitions(2) => ! NumPartitions used to fix broadcast partition strategy is 2 when it must be 1.
b.isCompatible(broadcast()) => true
b.isCompatible(three) => false

== Fixed
one = fixed(1)
one.isKnownSinglePartition() => true
one.allowsSinglePartition() => true
three.MinNumPartitions => 3
three.MaxNumPartitions => 3
three.getMinNumPartitions() => 3
three.getMaxNumPartitions() => 3
three.IsBroadcast => false
three.IsDatastorePartitioning => false
three.MaxNumReadFailures => 0
three.isKnownSinglePartition() => false
three.allowsSinglePartition() => false
three.isResolved() => true
three.numpartitions() => 3
three.numpartitions(12) => 3
fixed(6).resolve(8, 4, true).MinNumPartitions => 6
three.createPartition(2, 3) => {2 3}
three.createPartition(4, 9) => ! PartitionIndex used for this is 4 when it must be between 1 and 3
three.createPartition(1, 4) => ! NumPartitions used for this FixedNumPartitions is 4 when it must be 3
three.fixNumPartitions(3) => same three
three.fixNumPartitions(4) => ! NumPartitions used to fix this FixedNumPartitionStrategy is 4 when it must be 3
three.isCompatible(three) => true
three.isCompatible(fixed(3)) => true
three.isCompatible(fixed(4)) => false
three.isCompatible(arbitrary()) => false
three.throwIfIncompatible(fixed(3)) => null
three.throwIfIncompatible(fixed(4)) => ! KALVEX:bigdata:array:IncompatibleTallIndexing
three.throwIfIncompatible(broadcast()) => ! KALVEX:bigdata:array:IncompatibleTallIndexing
one.typedIsCompatible(broadcast()) => false
three.typedIsCompatible(1) => ! KALVEX:validateattributes:invalidType | Input | @executor.PartitionStrategy | double
three.MinNumPartitions := 4 => ! KALVEX:class:AccessDenied | @executor.FixedNumPartitionStrategy | MinNumPartitions

== A strategy is made of what represents one
createPartitionStrategyBuiltin([]) => ArbitraryPartitionStrategy
createPartitionStrategyBuiltin(4).MinNumPartitions => 4
createPartitionStrategyBuiltin(three) => same three
calls => none
createPartitionStrategyBuiltin(true) => ! Invalid input for createPartitionStrategy
calls => isDatastore(true)
createPartitionStrategyBuiltin({}) => ! createPartitionStrategy expects a scalar input
quiet isFolder = true
createPartitionStrategyBuiltin("folder").MinNumPartitions => 11
calls => isDatastore(folder) DatastorePartitionStrategy(folder)
@PartitionMetadata([]).Strategy => ArbitraryPartitionStrategy
@PartitionMetadata(6).Strategy.MinNumPartitions => 6
@PartitionMetadata(three).Strategy => same three
loaded('@PartitionMetadata').Strategy => null

== Alignment takes the first and passes over broadcasts
alignPartitionStrategyBuiltin(broadcast(), three) => same three
alignPartitionStrategyBuiltin(three, broadcast(), [], fixed(5)) => same three
alignPartitionStrategyBuiltin(three, arbitrary()) => ! KALVEX:bigdata:array:IncompatibleTallIndexing
b = broadcast()
alignPartitionStrategyBuiltin(b, b) => BroadcastPartitionStrategy
alignPartitionStrategyBuiltin(b, b) => not same b
alignPartitionStrategyBuiltin() => BroadcastPartitionStrategy
delete b
alignPartitionStrategyBuiltin(b) => ! KALVEX:class:InvalidHandle

== Alignment and concatenation look through metadata
m = @PartitionMetadata(three)
empty = loaded('@PartitionMetadata')
alignPartitionMetadataBuiltin().Strategy => BroadcastPartitionStrategy
alignPartitionMetadataBuiltin(empty, @PartitionMetadata(broadcast()), m, []).Strategy => same three
alignPartitionMetadataBuiltin(m, @PartitionMetadata(arbitrary())) => ! KALVEX:bigdata:array:IncompatibleTallIndexing
vertcatPartitionMetadataBuiltin(m, empty, @PartitionMetadata(broadcast())).Strategy.MinNumPartitions => 12
calls => ConcatenatedPartitionStrategy(FixedNumPartitionStrategy, null, BroadcastPartitionStrategy)
vertcatPartitionMetadataBuiltin(m)
calls => ConcatenatedPartitionStrategy(FixedNumPartitionStrategy)

== Metadata keeps its strategy until either goes
live('@executor.FixedNumPartitionStrategy') => 1
m = @PartitionMetadata(6)
live('@executor.FixedNumPartitionStrategy') => 2
strategy = m.Strategy
delete strategy
m.Strategy => same strategy
alignPartitionMetadataBuiltin(m) => ! KALVEX:class:InvalidHandle
drop strategy
m = @PartitionMetadata(6)
live('@executor.FixedNumPartitionStrategy') => 2
drop m
live('@executor.FixedNumPartitionStrategy') => 1
