#include "optimizer/NodeNames.h"

#include <cstddef>
#include <unordered_set>
#include <variant>

#include "foundation/i18n.h"

namespace bigdata::optimizer {

namespace {

/// Makes each name unique.
class DistinctNames {
 public:
  std::u16string nameFor(const std::u16string& id) {
    if (taken_.insert(id).second) {
      return id;
    }
    std::size_t& number = numbers_.try_emplace(id, 1).first->second;
    std::u16string name;
    do {
      name = id + u" (" + fl::i18n::to_ustring(std::to_string(++number)) + u")";
    } while (!taken_.insert(name).second);
    return name;
  }

 private:
  std::unordered_set<std::u16string> taken_;
  std::unordered_map<std::u16string, std::size_t> numbers_;  ///< the last one used for each id
};

}  // namespace

NodeNames::NodeNames(const GraphNodes& nodes) {
  DistinctNames distinct;
  names_.reserve(nodes.size());
  for (const lazyeval::ClosureGraphNode& node : nodes) {
    std::visit(
        [&](const auto& object) {
          names_.emplace(object.get(), distinct.nameFor(object->getIdStr()));
        },
        node);
  }
}

}  // namespace bigdata::optimizer
