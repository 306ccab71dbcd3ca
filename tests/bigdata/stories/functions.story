# The host's error class, and user functions.
class `kalvex.bigdata.BigDataException`
stub `kalvex.bigdata.BigDataException.getClientStack` = clientStack(hasInternalStackFramesBuiltin())
stub clientStack = "user.cpp:12"
stub `kalvex.bigdata.BigDataException.build` = built($1.identifier)
stub built = `kalvex.bigdata.BigDataException`()
stub attachSubmissionStack = $1
stub updateAndRethrow = ! demo:failed
sin = function('sin')
oops = lambda '! user:oops'

== A handle takes the client's stack inside a frame and has no limit
made = @FunctionHandle(sin)
calls => getClientStack() clientStack(true)
made.ErrorStack => user.cpp:12
made.MaxNumSlices => inf
made.Handle => sin()
hasInternalStackFramesBuiltin() => false

== A handle takes a given stack and then looks at no flag
made = @FunctionHandle(oops, 'ErrorStack', "here", 'CaptureErrorStack', "not a flag", 'MaxNumSlices', -3)
calls => none
made.ErrorStack => here
made.MaxNumSlices => -3

== Bad options are refused, the limit after the stack was taken
@FunctionHandle() => ! KALVEX:NotEnoughInputs
@FunctionHandle(oops, 'Limit', 1) => ! KALVEX:InputParser:UnmatchedParameter | Limit |
@FunctionHandle(oops, 'CaptureErrorStack', "no") => ! KALVEX:validateattributes:invalidType | Input | scalar logical |
calls => none
@FunctionHandle(oops, 'MaxNumSlices', '12') => ! KALVEX:validateattributes:invalidType | Input | scalar double | char
calls => getClientStack() clientStack(true)

== A handle calls its function with any number of inputs
count = @FunctionHandle(lambda '$#')
count.feval() => 0
count.feval(1) => 1
count.feval(1, 2, 3, 4) => 4
count.feval(1, 2, 3, 4, 5, 6) => 6

== A failure comes back at the user's line
made = @FunctionHandle(oops, 'ErrorStack', "line 12")
made.feval(1) => ! demo:failed
calls => build(KException) built(user:oops) attachSubmissionStack(BigDataException, line 12) updateAndRethrow(BigDataException)

== Without a stack, or with an empty one, none is attached
made = @FunctionHandle(oops, 'CaptureErrorStack', false)
made.ErrorStack => null
made.feval() => ! demo:failed
calls => build(KException) built(user:oops) updateAndRethrow(BigDataException)
made = @FunctionHandle(oops, 'ErrorStack', [])
made.feval() => ! demo:failed
calls => build(KException) built(user:oops) updateAndRethrow(BigDataException)

== An error that is built already isn't built again, and one that is swallowed is none
made = @FunctionHandle(oops, 'ErrorStack', "line 12")
0 of made.throwAsFunction(`kalvex.bigdata.BigDataException`()) => ! demo:failed
calls => attachSubmissionStack(BigDataException, line 12) updateAndRethrow(BigDataException)
stub updateAndRethrow
made.feval() => null

== A copy shares the plain function and copies what can be copied
class `kalvex.mixin.Copyable`
stub copy = `kalvex.mixin.Copyable`()
plain = @FunctionHandle(sin, 'MaxNumSlices', 5)
copied = plain.copy()
copied => not same plain
copied.Handle => sin()
copied.MaxNumSlices => 5
copied.ErrorStack => user.cpp:12
callable = `kalvex.mixin.Copyable`()
holder = @FunctionHandle(callable)
forget
holder.Handle => same callable
holder.copy().Handle => not same callable
calls => copy(Copyable)
plain.copyWithNewHandle(callable).Handle => same callable

== Without a frame the live stack is the user's; a frame takes and keeps it
stack live
hasInternalStackFramesBuiltin() => false
userStackBuiltin() => live
frame1 = @InternalStackFrame()
stack engine
hasInternalStackFramesBuiltin() => true
userStackBuiltin() => live

== A nested frame changes nothing
stack live
outer = @InternalStackFrame(frame('outer'))
nested = @InternalStackFrame(frame('nested'))
userStackBuiltin() => outer
drop nested
hasInternalStackFramesBuiltin() => true

== When the outermost frame goes its stack goes at once
stack live
outer = @InternalStackFrame(frame('outer'))
nested = @InternalStackFrame(frame('nested'))
drop outer
hasInternalStackFramesBuiltin() => false
userStackBuiltin() => live
next = @InternalStackFrame(frame('next'))
drop nested
userStackBuiltin() => next

== Values that need no gathering
class table does gather
class Plain
class tall
class Gatherable does gather
class Inheriting : Gatherable
canSkipGather(1, 'text', {}, frame('x'), sin, "text", table(), Plain(), tall(), Gatherable(), Inheriting()) => [true true true true true true true true false false false]
canSkipGather() => []
