#include "host/HeapModel.h"

#include <algorithm>
#include <cstdio>
#include <random>

#include "host/HeapTest.h"
#include "support/Seed.h"

namespace kv::test {

namespace {

using Id = HeapModel::Id;
using ValueTree = HeapModel::ValueTree;

/// Random steps on a heap and on its model side by side. Objects are watched through weak
/// references, so that their storage stays and shows whether they are deleted.
class ModelRun {
 public:
  ModelRun(Heap& heap, TestClass& objectClass, std::uint64_t seed)
      : heap_(heap), class_(objectClass), random_(seed) {
    class_.onDestroy = [this](void*) { ++partsDestroyed_; };
  }
  ~ModelRun() {
    while (!running_.empty()) {
      leaveMember();
    }
    strong_.clear();
    values_.clear();
    adopted_.clear();
    heap_.collect();
    class_.onDestroy = [](void*) {};
  }

  void step() {
    static constexpr void (ModelRun::*kSteps[])() = {
        &ModelRun::create,     &ModelRun::create,      &ModelRun::create,
        &ModelRun::failToMake, &ModelRun::hold,        &ModelRun::letGo,
        &ModelRun::letGo,      &ModelRun::letGo,       &ModelRun::link,
        &ModelRun::link,       &ModelRun::link,        &ModelRun::unlink,
        &ModelRun::swapLink,   &ModelRun::setSlot,     &ModelRun::setSlot,
        &ModelRun::makeValue,  &ModelRun::shareValue,  &ModelRun::dropValue,
        &ModelRun::dropValue,  &ModelRun::adoptValue,  &ModelRun::dropAdopted,
        &ModelRun::remove,     &ModelRun::enterMember, &ModelRun::leaveMember,
    };
    (this->*kSteps[below(std::size(kSteps))])();
  }

  /// Nothing that lives may be gone; after a collection nothing else may be left.
  void compare() {
    for (const Id id : model_.live()) {
      ASSERT_FALSE(objects_[id]->isDeleted()) << "object " << id << " was freed too early";
    }
    heap_.collect();
    model_.collect();
    std::size_t live = 0;
    for (Id id = 0; id < objects_.size(); ++id) {
      ASSERT_EQ(objects_[id]->isDeleted(), model_.objects[id].isDeleted) << "object " << id;
      live += objects_[id]->isDeleted() ? 0u : 1u;
    }
    ASSERT_EQ(heap_.liveObjects(), live);
    std::size_t waiting = 0;
    for (const Id id : std::set<Id>(running_.begin(), running_.end())) {
      waiting += model_.objects[id].isDeleted ? 1u : 0u;
    }
    ASSERT_EQ(partsDestroyed_ + waiting, objects_.size() - live);
    ASSERT_EQ(heap_.verify(), std::vector<std::string>());
    most_ = std::max(most_, live);
  }

  std::size_t mostLive() const { return most_; }
  std::size_t made() const { return objects_.size(); }

 private:
  std::size_t below(std::size_t bound) { return random_() % bound; }

  /// An object that the test may still know of: it has a strong reference.
  bool pickHeld(Id& id) {
    if (strong_.empty()) {
      return false;
    }
    id = strong_[below(strong_.size())].first;
    return true;
  }

  Object& object(Id id) { return *Object::of(objects_[id].get()); }

  Id enter(Object* made) {
    const Id id = model_.add();
    objects_.emplace_back(made, COSReferenceType::Weak);
    made->setInstanceData(class_.getClassId(), this);
    return id;
  }

  void create() {
    Object* made = heap_.allocate(class_);
    const Id id = enter(made);
    model_.objects[id].strong = 1;
    strong_.emplace_back(id, COSInterfacePtr(made, COSReferenceType::Strong));
    heap_.finishConstruction(*made);
  }

  void failToMake() {
    Object* made = heap_.allocate(class_);
    const Id id = enter(made);
    model_.objects[id].underConstruction = true;
    if (Id child = 0; pickHeld(child)) {
      addEdge(made, objects_[child]);
      addEdge(objects_[child], made);  // the child got to know the parent before it failed
      model_.objects[id].children.insert(child);
      if (!model_.objects[child].isDeleted) {
        model_.objects[child].children.insert(id);
      }
    }
    heap_.setSlot(*made, 0, randomValue(2).first);
    model_.remove(id);
    heap_.abandonConstruction(*made);
  }

  void hold() {
    if (Id id = 0; pickHeld(id)) {
      strong_.emplace_back(id, COSInterfacePtr(objects_[id], COSReferenceType::Strong));
      ++model_.objects[id].strong;
    }
  }

  void letGo() {
    if (strong_.empty()) {
      return;
    }
    std::swap(strong_[below(strong_.size())], strong_.back());
    --model_.objects[strong_.back().first].strong;
    strong_.pop_back();
  }

  void link() {
    Id parent = 0;
    Id child = 0;
    if (pickHeld(parent) && pickHeld(child) && !model_.objects[parent].isDeleted) {
      addEdge(objects_[parent], objects_[child]);
      model_.objects[parent].children.insert(child);
    }
  }

  void unlink() {
    Id parent = 0;
    if (!pickHeld(parent) || model_.objects[parent].children.empty()) {
      return;
    }
    std::multiset<Id>& children = model_.objects[parent].children;
    const auto child = std::next(children.begin(), static_cast<long>(below(children.size())));
    if (!objects_[*child]->isDeleted()) {
      removeEdge(objects_[parent], objects_[*child]);
      children.erase(child);
    }
  }

  void swapLink() {
    link();
    unlink();
  }

  /// A value over objects that are held, and the tree of what it leads to.
  std::pair<Value, ValueTree> randomValue(int depth) {
    auto tree = std::make_shared<HeapModel::ValueNode>();
    Id id = 0;
    if (!pickHeld(id) || below(8) == 0) {
      return {host::makeChars("no object"), tree};
    }
    const std::size_t kind = below(depth > 0 ? 4 : 2);
    if (kind == 0) {
      tree->objects = {id};
      return {scalarOf(objects_[id]), tree};
    }
    if (kind == 1) {
      Value matrix = matrix::from_kalvex(kcos::omCreateKCOSMatrix(2, 2, class_.getClassId()));
      for (std::size_t i = 0; i < 3; ++i, pickHeld(id)) {
        kcos::omSetArrayElement(matrix.get(), i, objects_[id]);
        tree->objects.push_back(id);
      }
      return {std::move(matrix), tree};
    }
    auto [first, firstTree] = randomValue(depth - 1);
    auto [second, secondTree] = randomValue(depth - 1);
    tree->parts = {firstTree, secondTree};
    if (kind == 2) {
      return {cellOf(std::move(first), std::move(second)), tree};
    }
    const std::string_view fields[] = {"a", "b"};
    Value structure = matrix::from_kalvex(kxCreateStructMatrix(1, 1, fields));
    kxSetField(structure.get(), 0, "a", first.release());
    kxSetField(structure.get(), 0, "b", second.release());
    return {std::move(structure), tree};
  }

  void setSlot() {
    if (Id id = 0; pickHeld(id) && !model_.objects[id].isDeleted) {
      const std::size_t slot = below(2);
      auto [value, tree] = randomValue(2);
      heap_.setSlot(object(id), slot, std::move(value));
      model_.objects[id].slots[slot] = tree;
    }
  }

  void makeValue() {
    auto [value, tree] = randomValue(3);
    values_.push_back(std::move(value));
    model_.outside.push_back(tree);
  }

  void shareValue() {
    if (!values_.empty()) {
      const std::size_t index = below(values_.size());
      values_.push_back(matrix::sharedCopy(values_[index].get()));
      model_.outside.push_back(model_.outside[index]);
    }
  }

  void dropValue() {
    if (!values_.empty()) {
      takeValue();
    }
  }

  std::pair<Value, ValueTree> takeValue() {
    const std::size_t index = below(values_.size());
    std::swap(values_[index], values_.back());
    std::swap(model_.outside[index], model_.outside.back());
    std::pair<Value, ValueTree> taken{std::move(values_.back()), model_.outside.back()};
    values_.pop_back();
    model_.outside.pop_back();
    return taken;
  }

  void adoptValue() {
    Id id = 0;
    if (values_.empty() || !pickHeld(id) || model_.objects[id].isDeleted) {
      return;
    }
    auto [value, tree] = takeValue();
    if (kxHasRootRecord(value.get())) {
      model_.objects[id].adopted.insert(tree);
      adopted_.push_back({id, tree, adopt(objects_[id], std::move(value))});
    }
  }

  void dropAdopted() {
    if (adopted_.empty()) {
      return;
    }
    std::swap(adopted_[below(adopted_.size())], adopted_.back());
    Adopted& gone = adopted_.back();
    std::multiset<ValueTree>& trees = model_.objects[gone.parent].adopted;
    if (const auto found = trees.find(gone.tree); found != trees.end()) {
      trees.erase(found);
    }
    adopted_.pop_back();
  }

  void remove() {
    if (Id id = 0; below(3) == 0 && pickHeld(id)) {
      model_.remove(id);
      heap_.deleteObject(object(id));
      ASSERT_TRUE(objects_[id]->isDeleted());
    }
  }

  void enterMember() {
    if (Id id = 0; running_.size() < 8 && pickHeld(id) && !model_.objects[id].isDeleted) {
      heap_.enterMember(object(id));
      running_.push_back(id);
      if (below(3) == 0) {
        remove();
      }
    }
  }

  void leaveMember() {
    if (!running_.empty()) {
      heap_.leaveMember(object(running_.back()));
      running_.pop_back();
    }
  }

  struct Adopted {
    Id parent;
    ValueTree tree;
    PropertyArray array;
  };

  Heap& heap_;
  TestClass& class_;
  std::mt19937_64 random_;
  HeapModel model_;
  std::vector<COSInterfacePtr> objects_;  ///< weak, by id
  std::vector<std::pair<Id, COSInterfacePtr>> strong_;
  std::vector<Value> values_;  ///< side by side with the model's outside values
  std::vector<Adopted> adopted_;
  std::vector<Id> running_;
  std::size_t partsDestroyed_ = 0;
  std::size_t most_ = 0;
};

class HeapModelTest : public HeapTest {};

TEST_F(HeapModelTest, RandomStepsLeaveExactlyTheModelsObjects) {
  const std::uint64_t firstSeed = drawSeed();
  for (std::size_t run = 0; run < sizes().modelRuns; ++run) {
    const std::uint64_t seed = firstSeed + run;
    SCOPED_TRACE("KV_SEED=" + std::to_string(seed));
    ModelRun steps(heap, slotted, seed);
    for (std::size_t i = 1, next = 100; i <= sizes().modelSteps; ++i) {
      steps.step();
      if (i == next) {
        steps.compare();
        next += std::max<std::size_t>(100, i / 50);  // a check costs as much as all that was made
      }
      if (HasFatalFailure()) {
        return;
      }
    }
    std::printf("gc-model: KV_SEED=%llu, %zu steps, %zu objects made, at most %zu live\n",
                static_cast<unsigned long long>(seed), sizes().modelSteps, steps.made(),
                steps.mostLive());
  }
}

}  // namespace
}  // namespace kv::test
