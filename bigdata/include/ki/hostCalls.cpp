#include "ki/hostCalls.h"

#include <string>

#include "util/InternalError.h"

namespace bigdata::ki {

namespace {

/// The one output slot that a call may always set; freed however the call ends.
class OutputSlot {
 public:
  OutputSlot() = default;
  ~OutputSlot() { matrix::from_kalvex(slot_); }
  OutputSlot(const OutputSlot&) = delete;
  OutputSlot& operator=(const OutputSlot&) = delete;

  kxArray** get() { return &slot_; }
  ArrayPtr take() { return matrix::from_kalvex(std::exchange(slot_, nullptr)); }

 private:
  kxArray* slot_ = nullptr;
};

ArrayPtr callFunction(kcos::NameRef name, int nlhs, std::span<const kxArray* const> inputs) {
  OutputSlot output;
  inCallFcn(nlhs, output.get(), static_cast<int>(inputs.size()), inputs.data(), name);
  return output.take();
}

ArrayPtr callMethod(kcos::COSInternedBase className, kcos::NameRef method,
                    const kcos::COSClient* client, int nlhs, std::span<const kxArray* const> inputs,
                    bool last) {
  OutputSlot output;
  if (!kcos::omCallMethod(className, kcos::internal::makeInterned(method), client, nlhs,
                          output.get(), static_cast<int>(inputs.size()), inputs.data(), last)) {
    throwInternalError("Could not find method " + std::string(className.text()) + "/" +
                       std::string(method.text()));
  }
  return output.take();
}

}  // namespace

ArrayPtr callHost(kcos::NameRef name, std::span<const kxArray* const> inputs) {
  return callFunction(name, 1, inputs);
}

void callHostForEffect(kcos::NameRef name, std::initializer_list<const kxArray*> inputs) {
  callFunction(name, 0, std::span(inputs.begin(), inputs.size()));
}

ArrayPtr callHostMethod(kcos::COSInternedBase className, kcos::NameRef method,
                        const kcos::COSClient* client, std::span<const kxArray* const> inputs,
                        bool last) {
  return callMethod(className, method, client, 1, inputs, last);
}

void callHostMethodForEffect(kcos::COSInternedBase className, kcos::NameRef method,
                             const kcos::COSClient* client,
                             std::initializer_list<const kxArray*> inputs) {
  callMethod(className, method, client, 0, std::span(inputs.begin(), inputs.size()), false);
}

ArrayPtr readHostProperty(const kxArray* object, kcos::NameRef name) {
  return matrix::from_kalvex(kxGetPropertyShared(object, 0, name));
}

}  // namespace bigdata::ki
