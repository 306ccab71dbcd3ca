#pragma once

#include <cstddef>
#include <string>
#include <tuple>
#include <vector>

#include "executor/PartitionStrategy.h"
#include "ki/PropertyArrayPtr.h"
#include "ki/PropertyPtr.h"
#include "util/UniqueIdFactory.h"

namespace bigdata::executor {

/// A node in a graph of data processors that runs as a single composite processor. It is either an
/// inner node, with the builders of its inputs and a factory for its processor, or a global input,
/// which names the outer input that it represents.
class CompositeDataProcessorBuilder : public ki::KalvexManagedObject {
 public:
  static constexpr kcos::NameRef kHostClassName =
      "kalvex.bigdata.internal.executor.CompositeDataProcessorBuilder";
  static constexpr const char* kIdPrefix = "CompositeDataProcessorBuilder";

  using BuilderPtr = ki::KalvexManagedPtr<CompositeDataProcessorBuilder>;
  using Builders = std::vector<BuilderPtr>;
  using StrategyPtr = ki::KalvexManagedPtr<PartitionStrategy>;

  /// For load: without an id.
  explicit CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info);
  /// Errors: "KALVEX:class:InvalidHandle" for a null or deleted builder, also in the next overload.
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                const Builders& inputBuilders,
                                matrix::ArrayPtr dataProcessorFactory);
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                const Builders& inputBuilders,
                                matrix::ArrayPtr dataProcessorFactory,
                                const StrategyPtr& outputPartitionStrategy);
  /// A global input: selected by position if `input` is a number, by name if it is text.
  /// Errors: those of the conversions to count and text.
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info, matrix::ArrayPtr input);
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info, std::u16string inputId);
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info,
                                std::size_t inputOrdinal);

  std::u16string getId() const { return id_.text(); }
  const util::UniqueId& uniqueId() const { return id_; }
  void setId(std::u16string value) { id_ = util::UniqueId(std::move(value)); }

  const std::vector<ki::PropertyPtr<CompositeDataProcessorBuilder>>& getInputBuilders() const {
    return inputBuilders_;
  }
  void setInputBuilders(const Builders& builders);

  const kxArray* getDataProcessorFactory() const { return dataProcessorFactory_.get(); }
  void setDataProcessorFactory(matrix::ArrayPtr value);

  /// Name of the global input that this represents; empty for none.
  std::u16string getInputId() const { return inputId_; }
  void setInputId(std::u16string value) { inputId_ = std::move(value); }

  /// Position of the global input that this represents; 0 for none.
  std::size_t getInputOrdinal() const { return inputOrdinal_; }
  void setInputOrdinal(std::size_t value) { inputOrdinal_ = value; }

  /// Partitioning of the output, if the node fixes it.
  const ki::PropertyPtr<PartitionStrategy>& getOutputPartitionStrategy() const {
    return outputPartitionStrategy_;
  }
  void setOutputPartitionStrategy(const StrategyPtr& value);

  /// A slot in which host code keeps its graph.
  const kxArray* getGraph() const { return graph_.get(); }
  void setGraph(matrix::ArrayPtr value);

  /// What the object's own method "getAllInputIds" returns.
  matrix::ArrayPtr getAllInputIds() const;
  bool getIsGlobalInput() const { return inputOrdinal_ != 0 || !inputId_.empty(); }

  /// Calls the object's own method "feval" with two arguments.
  matrix::ArrayPtr feval(const kxArray* first, const kxArray* second) const;

  /// All builders reachable from this one, each once, itself first: depth first, following the last
  /// input of each builder before the others.
  ///
  /// Errors: "KALVEX:class:InvalidHandle" if one of them was deleted.
  Builders findAllBuilders() const;

  /// The graph of all builders: the builders, as in `findAllBuilders`; the edges, an N-by-2 string
  /// array of input id and target id; and the position of each edge's input among the inputs of its
  /// target, an N-by-1 double array counting from 1. Edges are listed builder by builder, in the
  /// order of the inputs. Adjacent targets with the same id share one count of positions.
  std::tuple<Builders, matrix::ArrayPtr, matrix::ArrayPtr> findAllDependencies() const;

 private:
  util::UniqueId id_;
  std::vector<ki::PropertyPtr<CompositeDataProcessorBuilder>> inputBuilders_;
  ki::PropertyArrayPtr dataProcessorFactory_;
  std::u16string inputId_;
  std::size_t inputOrdinal_ = 0;
  ki::PropertyPtr<PartitionStrategy> outputPartitionStrategy_;
  ki::PropertyArrayPtr graph_;

  /// Tag: draws the next id.
  struct NewId {};
  CompositeDataProcessorBuilder(const ki::KalvexManagedConstructInfo& info, NewId);
};

}  // namespace bigdata::executor
