stub version = '7.2'
x = pending(1)
metadata = x.PartitionMetadata
forget

== A record keeps release, future and metadata
x.setCachedPreviewData(1, true)
made = saved(x)
calls => version(-release)
fields(made) => {Version ValueFuture PartitionMetadata}
made.Version => 7.2
made.ValueFuture => same x.ValueFuture
made.PartitionMetadata => same metadata

== An array is the same in the release that saved it
made = saved(x)
executor "of the loading session"
forget
again = restored(made)
calls => version(-release) default() keepAlive(of the loading session)
again.ValueFuture => same x.ValueFuture
again.PartitionMetadata => same metadata
again.Executor => of the loading session
again.HasPreviewData => false
warnings => none

== One of any other release is invalid, whatever it holds
invalid = ready(0)
stub createInvalidVersionArray of @lazyeval.LazyPartitionedArray static = invalid
made = saved(x)
stub version = '7.1'
forget
restored(made) => same invalid
calls => version(-release) createInvalidVersionArray(7.2)
warnings => KALVEX:bigdata:array:InvalidTallVersion | 7.2
stub version = '7.3'
restored(record('Version', '7.2', 'ValueFuture', 3)) => same invalid
warnings => KALVEX:bigdata:array:InvalidTallVersion | 7.2
stub version = '7.2 '
restored(made) => same invalid
warnings => KALVEX:bigdata:array:InvalidTallVersion | 7.2
restored(record('ValueFuture', x.ValueFuture, 'PartitionMetadata', metadata)) => same invalid
warnings => KALVEX:bigdata:array:InvalidTallVersion | 2016b
stub version = '2016b'
restored(record('ValueFuture', x.ValueFuture, 'PartitionMetadata', metadata)).ValueFuture => same x.ValueFuture
warnings => none

== Invalid ones need their method
made = saved(x)
stub version = '8'
restored(made) => ! Could not find method @lazyeval.LazyPartitionedArray/createInvalidVersionArray

== Broken records fail where they are used
restored(record('Version', '7.2', 'ValueFuture', null, 'PartitionMetadata', metadata)).hGetMetadata() => ! KALVEX:class:InvalidHandle
restored(record('Version', '7.2', 'ValueFuture', 3)) => ! KALVEX:validateattributes:invalidType | Input | scalar @lazyeval.ClosureFuture | double
restored(record('Version', 3)) => ! KALVEX:string:MustBeStringScalarOrCharacterVector

== The host saves an array with its graph
shared = ready(4)
y = elementfun(function('plus'), x, shared, shared)
again = reopened(y)
equal(again.ValueFuture.Promise.Id, y.ValueFuture.Promise.Id) => true
inputs = again.ValueFuture.Promise.Closure.InputFutures
inputs => 3 ClosureFuture
inputs[2] => same inputs[3]
inputs[1] => not same inputs[2]
inputs[2].Value => 4
