#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace kv::test {

/// What the heap should do, written a second time as simply as possible: plain sets, and a walk
/// from the roots whenever a test asks what is alive.
class HeapModel {
 public:
  using Id = std::size_t;

  /// A value as a list of what it leads to.
  struct ValueNode {
    std::vector<Id> objects;
    std::vector<std::shared_ptr<const ValueNode>> parts;
  };
  using ValueTree = std::shared_ptr<const ValueNode>;

  struct ModelObject {
    std::size_t strong = 0;
    bool underConstruction = false;
    bool isDeleted = false;
    std::multiset<Id> children;
    std::vector<ValueTree> slots = {nullptr, nullptr};
    std::multiset<ValueTree> adopted;
  };

  Id add() {
    objects.emplace_back();
    return objects.size() - 1;
  }

  /// The objects that are reachable and not deleted.
  std::set<Id> live() const {
    std::set<Id> reached;
    std::vector<Id> waiting;
    const auto reach = [&](Id id) {
      if (reached.insert(id).second) {
        waiting.push_back(id);
      }
    };
    for (Id id = 0; id < objects.size(); ++id) {
      if (objects[id].strong != 0 || objects[id].underConstruction) {
        reach(id);
      }
    }
    for (const ValueTree& value : outside) {
      forEachObject(value, reach);
    }
    while (!waiting.empty()) {
      const ModelObject& object = objects[waiting.back()];
      waiting.pop_back();
      if (object.isDeleted) {
        continue;
      }
      for (const Id child : object.children) {
        reach(child);
      }
      for (const ValueTree& value : object.slots) {
        forEachObject(value, reach);
      }
      for (const ValueTree& value : object.adopted) {
        forEachObject(value, reach);
      }
    }
    std::erase_if(reached, [this](Id id) { return objects[id].isDeleted; });
    return reached;
  }

  /// A deleted object leads nowhere; references to it may still be there.
  void remove(Id id) {
    ModelObject gone;
    gone.strong = objects[id].strong;
    gone.isDeleted = true;
    objects[id] = std::move(gone);
  }

  /// What isn't live stays deleted from here on.
  void collect() {
    const std::set<Id> alive = live();
    for (Id id = 0; id < objects.size(); ++id) {
      if (!alive.contains(id)) {
        remove(id);
      }
    }
  }

  std::vector<ModelObject> objects;
  std::vector<ValueTree> outside;

 private:
  template <class Reach>
  static void forEachObject(const ValueTree& value, const Reach& reach) {
    if (value == nullptr) {
      return;
    }
    for (const Id id : value->objects) {
      reach(id);
    }
    for (const ValueTree& part : value->parts) {
      forEachObject(part, reach);
    }
  }
};

}  // namespace kv::test
