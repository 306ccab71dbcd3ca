stub `RandStream.getGlobalStream` = "own"
stub getRandStreamForPartition = "partition's"
stub `RandStream.setGlobalStream`
stub @lazyeval.GlobalStateProcessorFactory = "wrapped"
random = @PartitionedArrayOptions('RequiresRandState', true, 'RandStreamFactory', "factory")
plain = @PartitionedArrayOptions()
quiet elementwise = @lazyeval.ElementwiseOperation($1, @FunctionHandle(function('plus'), 'ErrorStack', [], 'MaxNumSlices', $2), 2, 1)

== Bound and random state decide on fusing and direct evaluation
any = elementwise(plain, inf)
any.SupportsDirectEvaluation => true
any.isSlicewiseFusable() => true
calls => getCheckedFunctionHandle(ElementwiseOperation)
any.SupportsPreview => true
any.DependsOnOnlyHead => false
elementwise(plain, -inf).SupportsDirectEvaluation => true
elementwise(plain, -inf).isSlicewiseFusable() => true
elementwise(plain, 100).SupportsDirectEvaluation => false
elementwise(plain, 100).isSlicewiseFusable() => false
elementwise(plain, 1e300).isSlicewiseFusable() => false
forget
elementwise(random, inf).SupportsDirectEvaluation => true
elementwise(random, inf).isSlicewiseFusable() => false
calls => none

== Direct evaluation brings the stream of partition one
elementwise(random, inf).directEvaluate(1, 1) => 100
calls => getGlobalStream() getRandStreamForPartition(factory, 1) setGlobalStream(partition's) directEvaluateImpl(ElementwiseOperation, 1, 1) setGlobalStream(own)
elementwise(plain, inf).directEvaluate(1, 1) => 100
calls => directEvaluateImpl(ElementwiseOperation, 1, 1)
stub getRandStreamForPartition = ! KALVEX:OutOfMemory
elementwise(random, inf).directEvaluate(1, 1) => ! KALVEX:OutOfMemory
calls => getGlobalStream() getRandStreamForPartition(factory, 1) setGlobalStream(own)

== Global state wraps a factory only where it is asked for
operation(1, 1).addGlobalState("factory") => factory
elementwise(plain, inf).addGlobalState("factory") => factory
elementwise(random, inf).addGlobalState("factory") => wrapped
calls => TestOperation(1, 1) GlobalStateProcessorFactory(factory, PartitionedArrayOptions)

== A language class is called back with itself before its inputs
made = operation(2, 1)
forget
made.directEvaluate(1, 2, 2, 1) => 42
calls => directEvaluateImpl(TestOperation, 1, 2, 2, 1)

== Counts alone give default flags
made = operation(2, 3)
made.NumInputs => 2
made.NumOutputs => 3
made.SupportsPreview => false
made.DependsOnOnlyHead => false
made.SupportsDirectEvaluation => false
made.Options => ! KALVEX:class:AccessDenied | @lazyeval.Operation | Options
