quiet state = {$1.IsDone, $1.IsPartitionIndependent, $1.Closure}
x = pending(1)
p = x.ValueFuture.Promise
none = @lazyeval.Closure(null, operation(0, 0)).InputFutures
forget

== A closure has a promise for each output, counted from one
c = pending(3).ValueFuture.Promise.Closure
c.OutputPromises => 3 ClosurePromise
c.OutputPromises[1].ArgoutIndex => 1
c.OutputPromises[3].ArgoutIndex => 3
c.OutputPromises[3].IsPartitionIndependent => true
c.OutputPromises[3].Closure => same c

== One flag for all outputs, or one for each
@lazyeval.Closure(none, operation(0, 3), [false]).OutputPromises[3].IsPartitionIndependent => false
flagged = @lazyeval.Closure(none, operation(0, 3), [true false true])
flagged.OutputPromises[1].IsPartitionIndependent => true
flagged.OutputPromises[2].IsPartitionIndependent => false
flagged.OutputPromises[3].IsPartitionIndependent => true
@lazyeval.Closure(none, operation(0, 0), []).OutputPromises => ! KALVEX:validateattributes:invalidType | Argument | row vector | 0x0 double
@lazyeval.Closure(none, operation(0, 1048577)) => ! KALVEX:CountTooLarge | 1048577 | 1048576

== A deleted input raises, and what nothing reaches is garbage
c = elementfun(function('plus'), x, x).ValueFuture.Promise.Closure
c.getDirectDependencies() => Closure
delete c.InputFutures[1]
c.getDirectDependencies() => ! KALVEX:class:InvalidHandle
live('@lazyeval.Closure') => 2
drop c
live('@lazyeval.Closure') => 1
drop x
drop p
live('@lazyeval.Closure') => 0

== A promise that is independent cuts its closure when it is done
state(p) => {false true Closure}
p.setValue(5) => null
state(p) => {true true null}
p.setValue(5) => ! Attempted to complete a ClosurePromise that is already complete.
p.setPartitionIndependent(false) => ! Attempted to remove the partition independent flag on a ClosurePromise that is already complete.
state(p) => {true true null}
p.setPartitionIndependent(true) => null
state(p) => {true true null}

== One that depends on partitions keeps its closure until it is made independent
p.setPartitionIndependent(false) => null
state(p) => {false false Closure}
p.setPartitionIndependent(true) => null
state(p) => {false true Closure}
p.setPartitionIndependent(false)
p.setValue(5) => null
state(p) => {true false Closure}
p.setValue(5) => ! Attempted to complete a ClosurePromise that is already complete.
p.setPartitionIndependent(false) => ! Attempted to remove the partition independent flag on a ClosurePromise that is already complete.
p.setPartitionIndependent(true) => null
state(p) => {true true null}

== A promise keeps its first value and shows it through its future
p.Future.IsDone => false
p.Future.Value => null
p.setValue(5)
p.setValue(6) => ! Attempted to complete a ClosurePromise that is already complete.
p.Future.IsDone => true
p.Future.Value => 5

== A promise made from a value is complete and has no closure
made = @lazyeval.ClosurePromise("ready")
state(made) => {true true null}
made.ArgoutIndex => 0
made.CachedValue => ready

== A promise cuts only its own link to the closure
c = pending(2).ValueFuture.Promise.Closure
c.OutputPromises[1].setValue(1)
state(c.OutputPromises[1]) => {true true null}
state(c.OutputPromises[2]) => {false true Closure}
c.OutputPromises => 2 ClosurePromise

== What is upstream is released once a promise is complete
y = elementfun(function('plus'), x, 1)
drop x
drop p
drop none
live('@lazyeval.Closure') => 2
y.ValueFuture.Promise.setValue(1)
live('@lazyeval.Closure') => 0

== Swapping trades futures and nothing else
q = pending(1).ValueFuture.Promise
p.hSetMetadata(1)
q.hSetMetadata(2)
future = p.Future
before = q.Future
p.swap(q)
q.setValue(7)
future.Value => 7
future.Promise => same q
p.Future => same before
p.Future.Promise => same p
p.Metadata => 1
q.Metadata => 2
p.IsDone => false
p.swap([]) => ! KALVEX:class:InvalidHandle
p.Future => same before

== Load keeps a value only if it is partition independent
kept = loaded('@lazyeval.ClosurePromise', 'CachedValue', 3, 'IsDone', true, 'IsPartitionIndependent', true)
kept.IsDone => true
kept.CachedValue => 3
lost = loaded('@lazyeval.ClosurePromise', 'CachedValue', 3, 'IsDone', true, 'IsPartitionIndependent', false)
lost.IsDone => false
lost.CachedValue => null

== A future of a deleted promise raises
future = p.Future
delete p
future.IsDone => ! KALVEX:class:InvalidHandle

== A cache node takes the place of a value in place
x.hSetMetadata("rows")
p.setPartitionIndependent(false)
before = x.ValueFuture
other = createFromFutureBuiltin(before, [])
0 of markforreuse(x)
x.ValueFuture.Promise.Closure.Operation => CacheOperation
x.hGetMetadata() => rows
x.ValueFuture.Promise.IsPartitionIndependent => true
x.ValueFuture.Promise.Closure.InputFutures[1] => same before
other.ValueFuture => same before
x.ValueFuture.Promise.setValue(1)
0 of markforreuse(x)
x.ValueFuture.IsDone => false
x.ValueFuture.Promise.Closure.Operation => CacheOperation

== A successor is tied to the old key while both are pending
y = pending(1)
z = pending(1)
stub setOldKey
0 of markforreuse(x)
x.ValueFuture.Promise.Closure.Operation.CacheEntryKey := "old"
forget
x.updateforreuse(y)
calls => CacheOperation() setOldKey([], old)
y.ValueFuture.Promise.Closure.Operation => CacheOperation
x.ValueFuture.Promise.setValue(1)
x.updateforreuse(z)
calls => CacheOperation()
z.ValueFuture.Promise.Closure.Operation => CacheOperation

== A preview is set once while the value is pending
x.getCachedPreviewData() => null
2 of x.getCachedPreviewData() => false
x.setCachedPreviewData(2, true)
x.getCachedPreviewData() => 2
2 of x.getCachedPreviewData() => true
p.setValue(1)
x.hasCachedPreviewData() => true
x.PreviewData => 2
x.IsPreviewTruncated => true
