#include "CoreSession.h"

namespace bigdata {
namespace {

/// Whose stack is the user's: that of the outermost internal frame, or the live one.
class StackFrames : public CoreSession {
 protected:
  StackFrames() {
    session.setStackProvider([this] { return live; });
  }

  /// A stack value of one frame.
  Value stackOf(const std::string& name) {
    const std::string_view fields[] = {"file", "name", "line"};
    Value stack = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
    kxSetField(stack.get(), 0, "name", kv::host::makeChars(name).release());
    return stack;
  }
  /// The name of the innermost frame of the user's stack.
  std::string userFrame() {
    const Value stack = call("userStackBuiltin");
    return kv::host::toText(kxGetField(stack.get(), 0, "name"));
  }
  bool isInside() { return kv::host::toLogical(call("hasInternalStackFramesBuiltin").get()); }

  std::vector<kv::host::Frame> live{{"user.cpp", "live", 12}};
};

TEST_F(StackFrames, WithoutAFrameTheLiveStackIsTheUsers) {
  EXPECT_FALSE(isInside());
  EXPECT_EQ(userFrame(), "live");
}

TEST_F(StackFrames, AFrameTakesTheLiveStackAndKeepsIt) {
  const Value frame = make("InternalStackFrame");
  live = {{"engine.cpp", "engine", 99}};
  EXPECT_TRUE(isInside());
  EXPECT_EQ(userFrame(), "live");
}

TEST_F(StackFrames, AFrameCanBeGivenItsStack) {
  const Value frame = make("InternalStackFrame", stackOf("given"));
  EXPECT_EQ(userFrame(), "given");
}

TEST_F(StackFrames, ANestedFrameChangesNothing) {
  const Value outer = make("InternalStackFrame", stackOf("outer"));
  Value nested = make("InternalStackFrame", stackOf("nested"));
  EXPECT_EQ(userFrame(), "outer");
  nested.reset();
  EXPECT_TRUE(isInside());
}

TEST_F(StackFrames, WhenTheOutermostGoesTheSnapshotGoesAtOnce) {
  Value outer = make("InternalStackFrame", stackOf("outer"));
  Value nested = make("InternalStackFrame", stackOf("nested"));
  outer.reset();
  EXPECT_FALSE(isInside());
  EXPECT_EQ(userFrame(), "live");
  const Value next = make("InternalStackFrame", stackOf("next"));
  nested.reset();
  EXPECT_EQ(userFrame(), "next");
}

}  // namespace
}  // namespace bigdata
