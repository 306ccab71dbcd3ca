x = pending(1)
plus = function('plus')
options = @PartitionedArrayOptions()
metadata = @PartitionMetadata(2)
four = createFromFutureBuiltin(ready(1).ValueFuture, 4)
forget

== What goes wrong with arrays
executor "a second executor"
quiet checkSameExecutor
elsewhere = ready(1)
elementfun(plus, x, elsewhere) => ! KALVEX:bigdata:array:IncompatibleTallExecutor
elementfun(plus, OtherArray(), x) => ! Cannot mix two different implementations of PartitionedArray: @lazyeval.LazyPartitionedArray, OtherArray
elementfun(2, x) => ! Function handle must be a function_handle or a @FunctionHandle.
elementfun(plus, createFromFutureBuiltin(ready(1).ValueFuture, []), four) => ! KALVEX:bigdata:array:IncompatibleTallIndexing
joinbykey(x) => ! Method PartitionedArray/joinbykey is currently not supported.
repartition([], x) => ! Expected a valid @PartitionMetadata object.
createFromFutureBuiltin([], 2) => ! Expected a valid @lazyeval.ClosureFuture object.
createFromConstantBuiltin(elsewhere) => ! Constant input cannot be a partitioned array
elsewhere.getCachedPreviewData() => ! Requested cache preview data on an array that is already complete
elsewhere.setCachedPreviewData(1, true) => ! Setting cache preview data on an array that is already complete
x.setCachedPreviewData(1, true)
x.setCachedPreviewData(1, true) => ! Setting cache preview data on an array that already has it
@optimizer.ClosureGraph(2) => ! ClosureGraph expects all inputs to be of type @lazyeval.LazyPartitionedArray

== What goes wrong with operations and closures
of2 = operation(1, 2)
none = @lazyeval.Closure(null, operation(0, 0)).InputFutures
3 of applyOperationBuiltin(of2, 2) => ! Requested 3 outputs from an operation that generates at most 2
applyOperationBuiltin(TestOperation(2, nan)) => ! KALVEX:CountTooLarge | 9223372036854775808 | 1048576
applyOperationBuiltin(2) => ! KALVEX:validateattributes:invalidType | Input | scalar @lazyeval.Operation | double
slicefun(plus, x).ValueFuture.Promise.Closure.Operation.directEvaluate() => ! @lazyeval.SlicewiseOperationdoes not support direct evaluation.
@lazyeval.Closure(none, of2, [true true true]) => ! isPartitionIndependent must be scalar or be of size as number of outputs
@lazyeval.Closure(none, of2, [false]).OutputPromises => 2 ClosurePromise
@lazyeval.Closure(none, of2, 1) => ! KALVEX:validateattributes:invalidType | Argument | row vector | 1x1 double
promise = ready(1).ValueFuture.Promise
promise.setValue(1) => ! Attempted to complete a ClosurePromise that is already complete.
promise.setPartitionIndependent(false) => ! Attempted to remove the partition independent flag on a ClosurePromise that is already complete.

== What goes wrong with names and texts
@PartitionedArrayOptions(1, true) => ! KALVEX:InputParser:ParamMustBeChar
@PartitionedArrayOptions('RequiresRandState', true, 'PassTaggedInputs') => ! KALVEX:InputParser:ParamMissingValue | PassTaggedInputs
@PartitionedArrayOptions('requiresrandstate', true) => ! KALVEX:InputParser:UnmatchedParameter | requiresrandstate |
@PartitionedArrayOptions('RequiresGlobalState', true) => ! KALVEX:InputParser:UnmatchedParameter | RequiresGlobalState |
@executor.CompositeDataProcessorBuilder(true) => ! KALVEX:string:MustBeStringScalarOrCharacterVector
@executor.CompositeDataProcessorBuilder(missing()) => ! KALVEX:string:MissingNotSupported
@executor.CompositeDataProcessorBuilder(-1) => ! KALVEX:validateattributes:invalidType | Input | scalar size_t | 1x1 double
@executor.CompositeDataProcessorBuilder(1).AllInputIds => ! Could not find method @executor.CompositeDataProcessorBuilder/getAllInputIds

== Options take names as chars or strings and values by their conversion
made = @PartitionedArrayOptions('RequiresRandState', 5, "RandStreamFactory", 7, "PassTaggedInputs", true)
made.RequiresRandState => true
made.RequiresGlobalState => true
made.PassTaggedInputs => true
made.RandStreamFactory => 7
@PartitionedArrayOptions('RequiresRandState', true, 'RequiresRandState', false).RequiresRandState => false
@PartitionedArrayOptions('RequiresRandState', 'no flag', 'Other', 'no flag') => ! KALVEX:InputParser:UnmatchedParameter | Other |
@PartitionedArrayOptions('RequiresRandState', 'no flag') => ! KALVEX:validateattributes:invalidType | Input | scalar logical |
options.RequiresGlobalState => false
options.PassTaggedInputs => false
options.RandStreamFactory => null
options.RequiresRandState := true
options.RequiresGlobalState => true
options.RequiresGlobalState := true => ! KALVEX:class:AccessDenied | @PartitionedArrayOptions | RequiresGlobalState

== An operation that may not evaluate is recorded
2 of applyOperationBuiltin(operation(1, 3), 2).ValueFuture.Promise.ArgoutIndex => 2
calls => TestOperation(1, 3) default() keepAlive(default executor) keepAlive(default executor)
a = applyOperationBuiltin(operation(1, 3), 2)
a.ValueFuture.IsDone => false
a.ValueFuture.Promise.ArgoutIndex => 1
a.ValueFuture.Promise.Closure.OutputPromises => 3 ClosurePromise
a.PartitionMetadata.Strategy => BroadcastPartitionStrategy

== An operation is evaluated at once where all is there
direct = directOperation(1, 1)
forget
a = applyOperationBuiltin(direct, 2)
calls => default() directEvaluateImpl(TestOperation, 2) keepAlive(default executor)
a.ValueFuture.Value => 42
applyOperationBuiltin(directOperation(0, 1)).ValueFuture.IsDone => true
forget
0 of applyOperationBuiltin(direct, 2)
calls => default() directEvaluateImpl(TestOperation, 2)
drop x
drop a
live('@lazyeval.Closure') => 0
0 of applyOperationBuiltin(operation(1, 1), 2)
live('@lazyeval.Closure') => 0

== A pending or dependent input forces a record
a = applyOperationBuiltin(directOperation(1, 1), x)
a.ValueFuture.IsDone => false
a.ValueFuture.Promise.IsPartitionIndependent => true
x.ValueFuture.Promise.setPartitionIndependent(false)
x.ValueFuture.Promise.setValue(1)
a = applyOperationBuiltin(directOperation(1, 1), x, 2)
a.ValueFuture.IsDone => false
a.ValueFuture.Promise.IsPartitionIndependent => false

== Partitioning follows from inputs unless metadata is given
applyOperationBuiltin(operation(1, 1), 2).PartitionMetadata.Strategy => BroadcastPartitionStrategy
applyOperationBuiltin(operation(1, 1), four).PartitionMetadata.Strategy => FixedNumPartitionStrategy
applyOperationBuiltin(operation(1, 1), @PartitionMetadata([]), four).PartitionMetadata.Strategy => ArbitraryPartitionStrategy

== Constants and futures become arrays
createFromConstantBuiltin(2).ValueFuture.Value => 2
calls => default() keepAlive(default executor)
createFromConstantBuiltin(local(3)).ValueFuture.Value => 3
createFromConstantBuiltin(2, []).Executor => []
createFromFutureBuiltin(x.ValueFuture, [], []).Executor => default executor
forget
createFromFutureBuiltin(x.ValueFuture, [], 2).Executor => 2
calls => keepAlive(2)

== A datastore is copied, checked and read
stub copy = 5
a = createFromDatastoreBuiltin(2)
calls => copy(2) checkDatastoreSupportForDefault(5) ReadOperation(5, 1) default() keepAlive(default executor)
a.PartitionMetadata.Strategy.MinNumPartitions => 5
a.ValueFuture.IsDone => false
stub copy = ! KALVEX:OutOfMemory
stub @throw = ! KALVEX:session:Closed
createFromDatastoreBuiltin(2) => ! KALVEX:session:Closed
calls => copy(2) throw(KException, IncludeCalleeStack, true)

== Options are optional and a plain function is wrapped
wrapped = @FunctionHandle(plus, 'ErrorStack', [])
elementfun(options, plus, x, 2).ValueFuture.Promise.Closure.Operation.NumInputs => 2
elementfun(plus, 2, x).ValueFuture.Promise.Closure.Operation.FunctionHandle.Handle => same plus
elementfun(wrapped, x, x).ValueFuture.Promise.Closure.Operation.FunctionHandle => same wrapped
elementfun(wrapped, x, x).ValueFuture.Promise.Closure.Operation.NumOutputs => 1

== An elementwise call makes a fixed number of host calls
elementfun(plus, x, 2)
calls => keepAlive(default executor)
sum = createFromConstantBuiltin(2)
forget
sum = elementfun(plus, sum, 2)
calls => directEvaluateImpl(ElementwiseOperation, 2, 2) keepAlive(default executor)
sum.ValueFuture.Value => 100

== Methods make their operations from their inputs
stub @broadcast = true
smallTallComparison(options, plus, 2, true, four, x)
calls => SmallTallComparisonOperation(PartitionedArrayOptions, FunctionHandle plus(), 2, true, 2, 1) keepAlive(default executor)
logicalElementfun(options, plus, four, x)
calls => LogicalElementwiseOperation(PartitionedArrayOptions, FunctionHandle plus(), 2, 1) keepAlive(default executor)
assertAdaptorCorrect(plus, four)
calls => AdaptorAssertionOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1) keepAlive(default executor)
filterslices(x, four, four)
calls => FilterOperation(2) keepAlive(default executor)
logicalRowSubsref(x, four, four)
calls => LogicalRowSubsrefOperation(2) keepAlive(default executor)
subsrefTabularVar(2, local("inside"), local(true), x)
calls => SubsrefTabularVarOperation(1, 1, true, 2, inside) keepAlive(default executor)
reducefun(options, plus, four)
calls => AggregateOperation(PartitionedArrayOptions, FunctionHandle plus(), FunctionHandle plus(), 1, 1) keepAlive(default executor)
aggregatefun(options, plus, function('max'), four)
calls => AggregateOperation(PartitionedArrayOptions, FunctionHandle plus(), FunctionHandle max(), 1, 1) keepAlive(default executor)
reducebykeyfun(plus, x, four)
calls => AggregateByKeyOperation(PartitionedArrayOptions, FunctionHandle plus(), FunctionHandle plus(), 2, 1) keepAlive(default executor)
aggregatebykeyfun(plus, function('max'), x, four)
calls => AggregateByKeyOperation(PartitionedArrayOptions, FunctionHandle plus(), FunctionHandle max(), 2, 1) keepAlive(default executor)
chunkfun(plus, four)
calls => ChunkwiseOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1) keepAlive(default executor)
fixedchunkfun(options, local(2), plus, four)
calls => FixedChunkwiseOperation(PartitionedArrayOptions, 2, FunctionHandle plus(), 1, 1) keepAlive(default executor)
partitionfun(plus, four)
calls => PartitionwiseOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1) keepAlive(default executor)
partitionheadfun(plus, four)
calls => PartitionwiseOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1, true) keepAlive(default executor)
generalpartitionfun(plus, four)
calls => GeneralizedPartitionwiseOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1) keepAlive(default executor)
repartition(metadata, x, four)
calls => RepartitionOperation(FixedNumPartitionStrategy, 1) keepAlive(default executor)
resizechunks(four, 2, true)
calls => ChunkResizeOperation(1, 2, true) keepAlive(default executor)
resizechunks(x)
calls => ChunkResizeOperation(1) keepAlive(default executor)
2 of resizechunks(x) => ! KALVEX:NotEnoughInputs
clientfun(plus, four)
calls => NonPartitionedOperation(PartitionedArrayOptions, FunctionHandle plus(), 1, 1) keepAlive(default executor)
ternaryfun(2, x, 2)
calls => broadcast(2) TernaryOperation() keepAlive(default executor)
2 of ternaryfun(x, x) => ! KALVEX:TooManyOutputs
ternaryfun(x, x, x, x) => ! KALVEX:TooManyInputs
ternaryfun(x, x) => ! KALVEX:NotEnoughInputs

== Results have their partitioning
elementfun(plus, four, x).PartitionMetadata.Strategy => FixedNumPartitionStrategy
filterslices(x, four).PartitionMetadata.Strategy => FixedNumPartitionStrategy
reducefun(plus, four).PartitionMetadata.Strategy => BroadcastPartitionStrategy
aggregatefun(plus, plus, four).PartitionMetadata.Strategy => BroadcastPartitionStrategy
reducebykeyfun(plus, x, four).PartitionMetadata.Strategy => ArbitraryPartitionStrategy
aggregatebykeyfun(plus, plus, x, four).PartitionMetadata.Strategy => ArbitraryPartitionStrategy
repartition(metadata, x, four).PartitionMetadata.Strategy.MinNumPartitions => 2
clientfun(plus, four).PartitionMetadata.Strategy => BroadcastPartitionStrategy
chunkfun(plus, four).ValueFuture.Promise.IsPartitionIndependent => true
partitionfun(plus, four).ValueFuture.Promise.IsPartitionIndependent => false
generalpartitionfun(plus, four).ValueFuture.Promise.IsPartitionIndependent => false
partitionheadfun(plus, four).ValueFuture.Promise.IsPartitionIndependent => false

== Slicewise operations spread unless they are strict
slicefun(plus, x).ValueFuture.Promise.Closure.Operation.AllowTallDimExpansion => true
slicefun(plus, x).ValueFuture.Promise.Closure.Operation.isSlicewiseFusable() => true
slicefun(plus, x).ValueFuture.Promise.Closure.Operation.SupportsDirectEvaluation => false
strictslicefun(plus, x).ValueFuture.Promise.Closure.Operation.AllowTallDimExpansion => false
strictslicefun(plus, x).ValueFuture.Promise.Closure.Operation.isSlicewiseFusable() => false

== Partition independence is marked and reported
isPartitionIndependent(x, 2) => true
x.ValueFuture.Promise.setPartitionIndependent(false)
isPartitionIndependent(2, x) => false
2 of markPartitionIndependent(x, 2) => 2
isPartitionIndependent(x) => true
markPartitionIndependent(x) => same x
quiet @lazyeval.alignpartitions = $1
alignpartitions(x, 2) => same x

== Random state brings a stream factory once
stub @RandStreamFactory = "factory"
options.RequiresRandState := true
elementfun(options, plus, x)
elementfun(options, plus, x)
calls => RandStreamFactory() keepAlive(default executor) keepAlive(default executor)
options.RandStreamFactory => factory

== Arrays notify their executor last that it is in use
ready(1)
calls => keepAlive(default executor)
live('@lazyeval.LazyPartitionedArray') => 2
stub keepAlive = ! KALVEX:OutOfMemory
ready(1) => ! KALVEX:OutOfMemory
live('@lazyeval.LazyPartitionedArray') => 2

== The executor in force is asked and the stored one shown
x.IsValid => true
calls => override() checkIsValidNow(default executor)
override []
x.numpartitions() => 7
calls => override() numPartitions(default executor, BroadcastPartitionStrategy)
override "override"
x.IsValid => true
calls => override() checkIsValidNow(override)
x.getExecutor() => override
x.Executor => default executor

== Metadata of a value is kept with its promise; deleted metadata is read as a property only
x.hSetMetadata("text")
createFromFutureBuiltin(x.ValueFuture, []).hGetMetadata() => text
gone = x.getPartitionMetadata()
delete gone
x.PartitionMetadata => same gone
x.getPartitionMetadata() => ! KALVEX:class:InvalidHandle

== Inputs of each kind are reduced to futures
wrapped = broadcastArray("text")
closure = elementfun(plus, x, local("inside"), wrapped, "text", []).ValueFuture.Promise.Closure
closure.InputFutures => 5 ClosureFuture
closure.InputFutures[1] => same x.ValueFuture
closure.InputFutures[2].Value => inside
closure.InputFutures[3].Value => same wrapped
closure.InputFutures[4].Value => text
closure.InputFutures[5].Value => []
forget
closure = elementfun(plus, x, broadcastArray(x)).ValueFuture.Promise.Closure
calls => NonPartitionedOperation(PartitionedArrayOptions, FunctionHandle @BroadcastArray(), 1, 1) keepAlive(default executor) keepAlive(default executor)
closure.InputFutures[2].IsDone => false
elementfun(plus, loaded('@lazyeval.LazyPartitionedArray')) => ! KALVEX:class:InvalidHandle
elementfun(plus, ready(1), four, "text").PartitionMetadata.Strategy.MinNumPartitions => 4

== The host is asked once for each executor that isn't the first
executor "A"
a = createFromFutureBuiltin(x.ValueFuture, 4)
executor "B"
b = createFromFutureBuiltin(x.ValueFuture, 4)
forget
elementfun(plus, "text", a, b, a, b).Executor => A
calls => checkSameExecutor(A, B) checkSameExecutor(A, B) keepAlive(A)
executor 1
one = createFromFutureBuiltin(x.ValueFuture, 4)
executor 1
equal = createFromFutureBuiltin(x.ValueFuture, 4)
forget
elementfun(plus, one, equal)
calls => checkSameExecutor(1, 1) keepAlive(1)

== A builder represents a global input by position or name
@executor.CompositeDataProcessorBuilder(2).IsGlobalInput => true
@executor.CompositeDataProcessorBuilder(2).InputOrdinal => 2
@executor.CompositeDataProcessorBuilder(2).InputId => ''
@executor.CompositeDataProcessorBuilder(2).DataProcessorFactory => null
@executor.CompositeDataProcessorBuilder(0).IsGlobalInput => false
@executor.CompositeDataProcessorBuilder("x").IsGlobalInput => true
@executor.CompositeDataProcessorBuilder("x").InputOrdinal => 0
@executor.CompositeDataProcessorBuilder('yz').InputId => yz
@executor.CompositeDataProcessorBuilder('').IsGlobalInput => false

== A builder holds its inputs, its factory and its strategy
leaf = @executor.CompositeDataProcessorBuilder(null, "factory")
made = @executor.CompositeDataProcessorBuilder(leaf, "factory", metadata.Strategy)
made.InputBuilders[1] => same leaf
made.DataProcessorFactory => factory
made.OutputPartitionStrategy => same metadata.Strategy
leaf.InputBuilders => 0 CompositeDataProcessorBuilder
leaf.OutputPartitionStrategy => null
@executor.CompositeDataProcessorBuilder([], "factory") => ! KALVEX:validateattributes:invalidType | Input | @executor.CompositeDataProcessorBuilder | double
quiet getAllInputIds of @executor.CompositeDataProcessorBuilder = "ids"
leaf.AllInputIds => ids
