#include "session/catalogue.h"

namespace kv::host {
namespace {

// {0}, {1}, ... stand for the arguments of the error, in order.
constexpr CatalogueEntry kHostCatalogue[] = {
    // Calls.
    {"KALVEX:UndefinedFunction", "Undefined function or class '{0}'."},
    {"KALVEX:TooManyOutputs", "Too many output arguments."},
    {"KALVEX:TooManyInputs", "Too many input arguments."},
    {"KALVEX:NotEnoughInputs", "Not enough input arguments."},
    {"KALVEX:OutOfMemory", "Out of memory."},
    {"KALVEX:RecursionLimit",
     "Too many calls run inside one another: {0}. A function may be calling itself without end."},
    {"KALVEX:NativeException", "{0}"},
    {"KALVEX:CountTooLarge", "A count of {0} is too large: the limit is {1}."},

    // Classes and objects.
    {"KALVEX:class:InvalidHandle", "Invalid or deleted object."},
    {"KALVEX:class:NoSuchMember", "Class '{0}' has no property or method '{1}'."},
    {"KALVEX:class:AccessDenied",
     "The property or method '{1}' of class '{0}' can't be accessed from here."},
    {"KALVEX:class:AbstractClass",
     "No object of class '{0}' can be made: it is abstract until a class defines {1}."},
    {"KALVEX:class:SealedClass",
     "Class '{0}' is sealed: it can be neither derived from nor redefined."},
    {"KALVEX:class:HasInstances", "Class '{0}' can't be redefined while it has instances."},
    {"KALVEX:class:InvalidSuperclass", "Class '{0}' can't have the superclass '{1}': {2}."},

    // Sessions.
    {"KALVEX:session:Closed", "The session is closed."},
    {"KALVEX:session:WrongThread", "The session belongs to the thread that made it."},
    {"KALVEX:session:NotAlone",
     "A session that keeps its classes per process must be the only one that is open."},

    // Save and load.
    {"KALVEX:save:NotSaveable", "An object of class '{0}' can't be saved: {1}."},
    {"KALVEX:save:CannotWrite", "'{0}' can't be written: {1}."},
    {"KALVEX:load:CannotRead", "'{0}' can't be read: {1}."},
    {"KALVEX:load:Corrupt", "Corrupt data in section '{0}' at offset {1}: {2}."},
    {"KALVEX:load:LaterFormat",
     "The file was made by a later release, {0}: it has format {1}, and this release, {2}, reads "
     "format {3}."},
    {"KALVEX:load:UnknownClass", "The saved class '{0}' isn't defined."},
    {"KALVEX:load:NotTrusted",
     "'{0}' was loaded without trust and can't be evaluated: load it as trusted first."},

    // Values.
    {"KALVEX:validateattributes:invalidType", "{0} must be {1}; it was '{2}'."},
    {"KALVEX:string:MustBeStringScalarOrCharacterVector",
     "Value must be a string scalar or a character vector."},
    {"KALVEX:string:MissingNotSupported", "A missing string isn't supported here."},
    {"KALVEX:InputParser:ParamMustBeChar",
     "A parameter name must be a string scalar or a character vector."},
    {"KALVEX:InputParser:ParamMissingValue", "No value was given for the parameter '{0}'."},
    {"KALVEX:InputParser:UnmatchedParameter", "'{0}' isn't a recognized parameter."},

    // Arrays larger than memory.
    {"KALVEX:bigdata:array:InternalError", "Internal error: {0}"},
    {"KALVEX:bigdata:array:IncompatibleTallIndexing",
     "Arrays that are combined must come from the same rows of the same source."},
    {"KALVEX:bigdata:array:IncompatibleTallExecutor",
     "Arrays that are combined must have the same executor."},
    {"KALVEX:bigdata:array:InvalidTallVersion",
     "The array was saved by release {0} and can't be loaded by this one."},
};

}  // namespace

std::span<const CatalogueEntry> hostCatalogue() noexcept { return kHostCatalogue; }

}  // namespace kv::host
