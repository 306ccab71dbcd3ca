#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "kcos/class.h"
#include "ki/KalvexManagedCosClassInfo.h"
#include "ki/detail/FixedTypeCosMethodInfo.h"
#include "ki/detail/FixedTypeCosPropertyInfo.h"
#include "ki/detail/VariadicCosMethodInfo.h"

namespace bigdata::ki {

using Access = kcos::MemberAccess;

namespace detail {

template <class Setter>
struct SetterArgument;
template <class C, class P>
struct SetterArgument<void (C::*)(P)> {
  using Type = std::remove_cvref_t<P>;
};

/// A member function of `C` or of a base; `C` is deduced from the declaration.
template <class Member>
struct MemberOf;
template <class C, class Result, class... P>
struct MemberOf<Result (C::*)(P...)> {
  using Class = C;
};
template <class C, class Result, class... P>
struct MemberOf<Result (C::*)(P...) const> {
  using Class = C;
};

}  // namespace detail

namespace detail {

template <class... P>
struct Overload {
  template <class Result, class C>
  constexpr auto operator()(Result (C::*member)(P...) const) const {
    return member;
  }
};

}  // namespace detail

/// `overload<P...>(&T::f)` chooses the const overload of a member by its parameters.
template <class... P>
inline constexpr detail::Overload<P...> overload{};

/// Fills a class of the host with the bound members of the native class `T`: one row per member, in
/// the order in which the class publishes them.
///
/// Parameters and results of members may have any type with a conversion (`ki/conversions.h`). A
/// parameter may also be a managed class by constant reference, and a tuple result sets one output
/// per element. Inputs are converted from last to first, then the object is checked, then the
/// member runs. A free function takes the object as its first parameter, `T&`.
template <class T>
class CosClassBuilder {
 public:
  explicit CosClassBuilder(kcos::COSClass* cls) : cls_(cls) {}

  CosClassBuilder& superclass(kcos::NameRef className) {
    cls_->addSuperclass(interned(className), 1, 0, 1);
    return *this;
  }

  /// Constructs a `T` from the construction context and inputs of the types `P`.
  template <class... P>
  CosClassBuilder& constructor(Access access) {
    static_assert(!std::is_abstract_v<T>, "an abstract class is made by constructorFrom");
    static_assert(std::constructible_from<T, const KalvexManagedConstructInfo&, P...>,
                  "the class has no constructor from a construction context and these types");
    return constructorFrom(
        [](const KalvexManagedConstructInfo& info, P... inputs) {
          return std::make_unique<T>(info, std::forward<P>(inputs)...);
        },
        access);
  }

  /// Constructs with a callable `std::unique_ptr<T>(const KalvexManagedConstructInfo&, P...)`.
  template <class Callable>
  CosClassBuilder& constructorFrom(Callable callable, Access access) {
    return addConstructor(std::function(std::move(callable)), access);
  }

  /// Constructs a `T` from the construction context and a list of any inputs with its count.
  CosClassBuilder& variadicConstructor(Access access) {
    static_assert(
        std::constructible_from<T, const KalvexManagedConstructInfo&, int, const kxArray**>,
        "the class has no constructor from a construction context, a count and a list");
    return variadicConstructor(
        [](const KalvexManagedConstructInfo& info, int nrhs, const kxArray** prhs) {
          return std::make_unique<T>(info, nrhs, prhs);
        },
        access);
  }

  using VariadicConstructor = typename detail::VariadicCosConstructorInfo<T>::Function;
  CosClassBuilder& variadicConstructor(VariadicConstructor function, Access access) {
    return addMethod<detail::VariadicCosConstructorInfo<T>>(ownName(), std::move(function), access);
  }

  template <class C, class Result, class... P>
  CosClassBuilder& method(kcos::NameRef name, Result (C::*member)(P...),
                          Access access = Access::Public) {
    return addMethod<detail::FixedTypeCosMethodInfo<T, decltype(member), Result, P...>>(
        interned(name), member, access);
  }
  template <class C, class Result, class... P>
  CosClassBuilder& method(kcos::NameRef name, Result (C::*member)(P...) const,
                          Access access = Access::Public) {
    return addMethod<detail::FixedTypeCosMethodInfo<T, decltype(member), Result, P...>>(
        interned(name), member, access);
  }
  template <class Result, class... P>
  CosClassBuilder& method(kcos::NameRef name, Result (*function)(T&, P...),
                          Access access = Access::Public) {
    return addMethod<detail::FixedTypeCosMethodInfo<T, decltype(function), Result, P...>>(
        interned(name), function, access);
  }

  /// A member with the raw signature; the object isn't among its inputs.
  template <class Member>
  CosClassBuilder& variadicMethod(kcos::NameRef name, Member member,
                                  Access access = Access::Public) {
    return addMethod<detail::VariadicCosMemberInfo<T, Member>>(interned(name), member, access);
  }

  /// A plain function with the raw signature; the object is among its inputs.
  CosClassBuilder& variadicFunction(kcos::NameRef name,
                                    detail::VariadicCosFunctionInfo::Function function,
                                    Access access = Access::Public) {
    return addMethod<detail::VariadicCosFunctionInfo>(interned(name), std::move(function), access);
  }

  /// A method that subclasses must define.
  CosClassBuilder& abstractMethod(kcos::NameRef name, Access access = Access::Public) {
    return addMethod<detail::AbstractCosMethodInfo>(interned(name), access);
  }

  template <class Getter, class Setter>
  CosClassBuilder& property(kcos::NameRef name, Getter getter, Setter setter, Access getAccess,
                            Access setAccess) {
    using SetType = typename detail::SetterArgument<Setter>::Type;
    return addProperty<SetType>(name, getter, setter, getAccess, setAccess,
                                kcos::COSPropT::kStored);
  }

  /// A derived property: computed on each read.
  template <class Getter>
  CosClassBuilder& readOnly(kcos::NameRef name, Getter getter, Access getAccess = Access::Public,
                            Access setAccess = Access::None) {
    return addProperty<detail::Ignore>(name, getter, nullptr, getAccess, setAccess,
                                       kcos::COSPropT::kDerived);
  }

  /// A stored property without a setter.
  template <class Getter>
  CosClassBuilder& storedReadOnly(kcos::NameRef name, Getter getter, Access getAccess,
                                  Access setAccess) {
    return addProperty<detail::Ignore>(name, getter, nullptr, getAccess, setAccess,
                                       kcos::COSPropT::kStoredReadOnly);
  }

  CosClassBuilder& abstractProperty(kcos::NameRef name, Access getAccess, Access setAccess) {
    cls_->addProperty(new detail::AbstractCosPropertyInfo(interned(name), getAccess, setAccess));
    return *this;
  }

  /// The body is supplied by the class's definition in the language.
  CosClassBuilder& declareMethod(kcos::NameRef name, Access access = Access::Public) {
    cls_->declareMethod(interned(name), access);
    return *this;
  }
  CosClassBuilder& declareStaticMethod(kcos::NameRef name, Access access = Access::Public) {
    cls_->declareStaticMethod(interned(name), access);
    return *this;
  }

 private:
  static kcos::COSInternedBase interned(kcos::NameRef name) {
    return kcos::internal::makeInterned(name);
  }

  /// A constructor's member name: the short class name.
  static kcos::COSInternedBase ownName() {
    return interned(kcos::NameRef::of(detail::shortClassName(hostClassName<T>().text())));
  }

  template <class Info, class... Arguments>
  CosClassBuilder& addMethod(Arguments&&... arguments) {
    cls_->addMethod(new Info(std::forward<Arguments>(arguments)...));
    return *this;
  }

  template <class... P>
  CosClassBuilder& addConstructor(
      std::function<std::unique_ptr<T>(const KalvexManagedConstructInfo&, P...)> function,
      Access access) {
    return addMethod<detail::FixedTypeCosConstructorInfo<T, P...>>(ownName(), std::move(function),
                                                                   access);
  }

  template <class SetType, class Getter, class Setter>
  CosClassBuilder& addProperty(kcos::NameRef name, Getter getter, Setter setter, Access getAccess,
                               Access setAccess, unsigned flags) {
    static_assert(std::derived_from<T, typename detail::MemberOf<Getter>::Class>,
                  "a getter is a member function of the class without parameters");
    using GetType = std::invoke_result_t<Getter, const T&>;
    using Info = detail::FixedTypeCosPropertyInfo<T, GetType, SetType, Getter, Setter>;
    cls_->addProperty(new Info(interned(name), getter, setter, getAccess, setAccess, flags));
    return *this;
  }

  kcos::COSClass* cls_;
};

}  // namespace bigdata::ki
