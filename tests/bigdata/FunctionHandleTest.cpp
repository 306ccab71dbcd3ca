#include <cmath>
#include <limits>
#include <memory>
#include <stdexcept>

#include "CoreSession.h"
#include "FunctionHandle.h"
#include "ki/createManagedObject.h"

namespace bigdata {
namespace {

using kv::host::makeChars;
using kv::host::makeDouble;
using kv::host::makeEmptyDouble;
using kv::host::makeFunctionHandle;
using kv::host::makeLogical;
using kv::host::makeString;

/// Function handles with a stand-in for the host's error class: "BigDataException" notes its cause
/// and the submission stack in its message when it is thrown on.
class FunctionHandles : public CoreSession {
 protected:
  FunctionHandles() {
    auto exception = std::make_shared<kv::host::ClassDefinition>();
    exception->name = "kalvex.bigdata.BigDataException";
    exception->properties = {{.name = "Cause"}, {.name = "Submission"}};
    session.defineClass(exception);

    stub("kalvex.bigdata.BigDataException.getClientStack", [this](const Call& c) {
      stackStood = kv::host::toLogical(call("hasInternalStackFramesBuiltin").get());
      c.out(0, makeString("user.cpp:12"));
    });
    stub("kalvex.bigdata.BigDataException.build", [this](const Call& c) {
      Value made = call("kalvex.bigdata.BigDataException");
      session.set(made.get(), "Cause", get(matrix::sharedCopy(c.in(0)), "message").get());
      c.out(0, std::move(made));
    });
    stub("attachSubmissionStack", [this](const Call& c) {
      session.set(c.in(0), "Submission", c.in(1));
      c.out(0, matrix::sharedCopy(c.in(0)));
    });
    stub("updateAndRethrow", [this](const Call& c) {
      const Value error = matrix::sharedCopy(c.in(0));
      const Value submission = get(error, "Submission");
      const std::string where =
          kxIsEmpty(submission.get()) ? "nowhere" : kv::host::toText(submission.get());
      kv::host::raiseWithMessage("demo:failed", getText(error, "Cause") + " at " + where);
    });
  }

  template <class... Inputs>
  Value handle(const Inputs&... inputs) {
    return make("FunctionHandle", inputs...);
  }
  Value failing() {
    return makeFunctionHandle("myFunction", [](const Call&) {
      kv::host::raiseWithMessage("user:oops", "my own message");
    });
  }
  std::string messageOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      return kv::host::errorRecord(envelope).message;
    }
    return "no error";
  }

  bool stackStood = false;
  const Value captureErrorStack = makeChars("CaptureErrorStack");
  const Value errorStack = makeChars("ErrorStack");
  const Value maxNumSlices = makeChars("MaxNumSlices");
};

TEST_F(FunctionHandles, TakeTheClientsStackInsideAFrameAndHaveNoLimit) {
  const Value made = handle(makeFunctionHandle("sin"));
  EXPECT_EQ(getText(made, "ErrorStack"), "user.cpp:12");
  EXPECT_TRUE(stackStood);
  EXPECT_FALSE(kv::host::toLogical(call("hasInternalStackFramesBuiltin").get()));
  EXPECT_EQ(getDouble(made, "MaxNumSlices"), std::numeric_limits<double>::infinity());
  EXPECT_EQ(kv::host::functionName(get(made, "Handle").get()), "sin");
}

TEST_F(FunctionHandles, TakeAGivenStackAndThenLookAtNoFlag) {
  const Value made = handle(failing(), errorStack, makeString("here"), captureErrorStack,
                            makeString("not a flag"), maxNumSlices, makeDouble(-3));
  EXPECT_EQ(getText(made, "ErrorStack"), "here");
  EXPECT_EQ(getDouble(made, "MaxNumSlices"), -3);
  EXPECT_EQ(takeCalls(), "");
}

TEST_F(FunctionHandles, RefuseBadOptions) {
  EXPECT_EQ(errorOf([&] { handle(); }), "KALVEX:NotEnoughInputs");
  EXPECT_EQ(errorOf([&] { handle(failing(), makeChars("Limit"), makeDouble(1)); }),
            "KALVEX:InputParser:UnmatchedParameter | Limit | ");
  EXPECT_EQ(errorOf([&] { handle(failing(), captureErrorStack, makeString("no")); }),
            "KALVEX:validateattributes:invalidType | Input | scalar logical | ");
  EXPECT_EQ(takeCalls(), "");
  EXPECT_EQ(errorOf([&] { handle(failing(), maxNumSlices, makeChars("12")); }),
            "KALVEX:validateattributes:invalidType | Input | scalar double | char");
  EXPECT_EQ(takeCalls(), "getClientStack") << "the stack is captured before the limit is read";
}

TEST_F(FunctionHandles, CallTheirFunctionWithAnyNumberOfInputs) {
  const Value made = handle(makeFunctionHandle("count", [](const Call& c) {
    for (int i = 0; i < c.nlhs; ++i) c.out(i, makeDouble(c.nrhs + i));
  }));
  for (int count = 0; count <= 6; ++count) {
    const Value one = makeDouble(1);
    const std::vector<const kxArray*> inputs(static_cast<std::size_t>(count), one.get());
    const std::vector<Value> outputs = session.invoke(made.get(), "feval", 2, inputs);
    ASSERT_EQ(outputs.size(), 2u);
    EXPECT_EQ(kxGetScalar(outputs[0].get()), count);
    EXPECT_EQ(kxGetScalar(outputs[1].get()), count + 1);
  }
}

TEST_F(FunctionHandles, AFailureComesBackAtTheUsersLine) {
  const Value made = handle(failing(), errorStack, makeString("line 12"));
  EXPECT_EQ(messageOf([&] { invoke(made, "feval", makeDouble(1)); }), "my own message at line 12");
  EXPECT_EQ(takeTrace(),
            "build(KException) attachSubmissionStack(BigDataException line 12) "
            "updateAndRethrow(BigDataException)");
}

TEST_F(FunctionHandles, WithoutAStackOrWithAnEmptyOneNoneIsAttached) {
  const Value notCaptured = handle(failing(), captureErrorStack, makeLogical(false));
  EXPECT_EQ(get(notCaptured, "ErrorStack"), nullptr);
  EXPECT_EQ(messageOf([&] { invoke(notCaptured, "feval"); }), "my own message at nowhere");
  EXPECT_EQ(takeCalls(), "build updateAndRethrow");

  const Value empty = handle(failing(), errorStack, makeEmptyDouble());
  EXPECT_EQ(messageOf([&] { invoke(empty, "feval"); }), "my own message at nowhere");
  EXPECT_EQ(takeCalls(), "build updateAndRethrow");
}

TEST_F(FunctionHandles, AnErrorThatIsBuiltAlreadyIsNotBuiltAgain) {
  const Value made = handle(failing(), errorStack, makeString("line 12"));
  const Value built = call("kalvex.bigdata.BigDataException");
  session.set(built.get(), "Cause", makeString("cause").get());
  EXPECT_EQ(messageOf([&] { session.invoke(made.get(), "throwAsFunction", 0, {{built.get()}}); }),
            "cause at line 12");
  EXPECT_EQ(takeCalls(), "attachSubmissionStack updateAndRethrow");
}

TEST_F(FunctionHandles, AnErrorThatIsSwallowedIsNoError) {
  stub("updateAndRethrow");
  const Value made = handle(failing(), captureErrorStack, makeLogical(false));
  EXPECT_EQ(errorOf([&] { invoke(made, "feval"); }), "no error");
}

TEST_F(FunctionHandles, ANativeFailureOfTheRoadItselfPassesUntouched) {
  class Interrupt : public kv::host::PassThrough {};
  const Value made = handle(makeFunctionHandle("stop", [](const Call&) { throw Interrupt(); }));
  takeCalls();
  EXPECT_THROW(invoke(made, "feval"), Interrupt);
  EXPECT_EQ(takeCalls(), "");
}

TEST_F(FunctionHandles, ACopySharesThePlainFunctionAndCopiesWhatCanBeCopied) {
  auto copyable = std::make_shared<kv::host::ClassDefinition>();
  copyable->name = "kalvex.mixin.Copyable";
  session.defineClass(copyable);
  stub("copy", [this](const Call& c) { c.out(0, call("kalvex.mixin.Copyable")); });

  const Value plain = handle(makeFunctionHandle("sin"), maxNumSlices, makeDouble(5));
  const Value copied = invoke(plain, "copy");
  EXPECT_FALSE(isSameObject(copied, plain));
  EXPECT_EQ(kv::host::functionName(get(copied, "Handle").get()), "sin");
  EXPECT_EQ(getDouble(copied, "MaxNumSlices"), 5);
  EXPECT_EQ(getText(copied, "ErrorStack"), "user.cpp:12");

  const Value callable = call("kalvex.mixin.Copyable");
  const Value ofObject = handle(callable);
  EXPECT_TRUE(isSameObject(get(ofObject, "Handle"), callable));
  EXPECT_EQ(takeCalls(), "getClientStack getClientStack") << "a plain function isn't copied";
  EXPECT_FALSE(isSameObject(get(invoke(ofObject, "copy"), "Handle"), callable));
  EXPECT_EQ(takeCalls(), "copy");
  EXPECT_TRUE(isSameObject(get(invoke(plain, "copyWithNewHandle", callable), "Handle"), callable));
}

TEST_F(FunctionHandles, MadeNativelyTakeTheUsersStackWithoutAHostCall) {
  session.setStackProvider([] { return std::vector<kv::host::Frame>{{"user.cpp", "f", 3}}; });
  const auto made = ki::createManagedObject<FunctionHandle>(makeFunctionHandle("sin"));
  EXPECT_EQ(kxGetNumberOfElements(made->getErrorStack()), 1u);
  EXPECT_TRUE(std::isinf(made->getMaxNumSlices()));
  EXPECT_EQ(takeCalls(), "");
}

}  // namespace
}  // namespace bigdata
