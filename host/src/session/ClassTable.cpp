#include "session/ClassTable.h"

#include <algorithm>

#include "kv/host/errors.h"
#include "name/names.h"
#include "session/CallTable.h"
#include "session/SessionState.h"
#include "session/languageClass.h"

namespace kv::host {

void Package::addClass(kcos::COSClassInfo* info, int /*flags*/, int /*kind*/) {
  std::unique_ptr<kcos::COSClassInfo> owned(info);
  std::string fullName = name_;
  fullName += '.';
  fullName += info->getClassName();
  table_.enter(fullName, std::move(owned));
}

ClassTable::ClassTable(SessionState& session, CallTable& calls)
    : session_(session), calls_(calls) {}

ClassTable::~ClassTable() = default;

ClassRecord* ClassTable::find(kcos::COSInternedBase name) const noexcept {
  const Binding* binding = calls_.find(name);
  return binding != nullptr ? binding->classRecord : nullptr;
}

ClassRecord& ClassTable::require(kcos::COSInternedBase name) const {
  if (ClassRecord* record = find(name)) {
    return *record;
  }
  raise("KALVEX:UndefinedFunction", {std::string(name.text())});
}

ClassRecord& ClassTable::makeRecord(kcos::COSInternedBase name) {
  Binding& binding = calls_.binding(name);
  ClassRecord& record = *records_.emplace_back(std::make_unique<ClassRecord>(*this, name));
  binding.classRecord = &record;
  return record;
}

void ClassTable::enter(const std::string& fullName, std::unique_ptr<kcos::COSClassInfo> info) {
  const kcos::COSInternedBase name = interned(fullName);
  if (find(name) != nullptr) {
    return;
  }
  entered_.reserve(entered_.size() + 1);
  ClassRecord& record = makeRecord(name);
  record.info_ = std::move(info);
  entered_.push_back(&record);
  makeStale(name);
}

void ClassTable::define(std::shared_ptr<const ClassDefinition> definition) {
  const kcos::COSInternedBase name = interned(definition->name);
  requireName(name.text().substr(name.text().rfind('.') + 1));
  ClassRecord* record = find(name);
  const bool isNew = record == nullptr;
  if (isNew) {
    record = &makeRecord(name);
  } else if (record->isNative() || name.text() == "KException") {
    raise("KALVEX:class:SealedClass", {definition->name});
  } else {
    refuseInstances(*record);
  }
  std::shared_ptr<ClassContents> former = record->contents_;
  try {
    record->contents_ = languageContents(*record, std::move(definition));
    makeStale(name);
    record->linked();
  } catch (...) {
    record->contents_ = std::move(former);
    makeStale(name);
    if (isNew) {
      calls_.binding(name).classRecord = nullptr;
      records_.pop_back();
    }
    throw;
  }
  calls_.retire(std::move(former));
}

void ClassTable::makeStale(kcos::COSInternedBase name) noexcept {
  for (const auto& record : records_) {
    if (record->linked_.ancestors.contains(name)) {
      record->linked_.isCurrent = false;
    }
  }
}

/// Instances of subclasses count: their slots depend on this class.
void ClassTable::refuseInstances(const ClassRecord& record) const {
  session_.heap.collect();
  for (const auto& other : records_) {
    if (other->isA(record.name()) && session_.heap.liveObjects(*other) != 0) {
      raise("KALVEX:class:HasInstances", {std::string(record.getName())});
    }
  }
}

void ClassTable::complete(std::shared_ptr<const ClassCompletion> completion) {
  ClassRecord& record = require(interned(completion->name));
  std::shared_ptr<CompletedMethods> completed =
      completedMethods(record, record.completed_.get(), std::move(completion));
  calls_.retire(std::exchange(record.completed_, std::move(completed)));
  makeStale(record.name());
}

Package& ClassTable::package(const std::string& fullName) {
  std::unique_ptr<Package>& package = packages_[interned(fullName)];
  if (package == nullptr) {
    package = std::make_unique<Package>(*this, fullName);
  }
  return *package;
}

void ClassTable::clear() noexcept {
  for (const auto& record : records_) {
    if (!record->isNative()) {
      record->contents_ = nullptr;
    }
    record->completed_ = nullptr;
  }
}

}  // namespace kv::host
