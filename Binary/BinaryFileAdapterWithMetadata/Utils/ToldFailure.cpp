#include "Binary/BinaryFileAdapterWithMetadata/Utils/ToldFailure.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/TaskEngine/VSTask.h"

#include <utility>

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

/// The first of a list of errors; null for anything else.
ErrorPtr firstOf(const Value& errors) {
  return errors.isArray() ? (*errors.array())[0].error() : nullptr;
}
/// The first of the errors that `context` is about; null where it is about none.
ErrorPtr firstIn(const Dictionary& context) { return firstOf(context[platform::kTaskErrors]); }

/// Shares the ownership of the whole chain. Null for an error that wraps none.
ErrorPtr causeOf(const ErrorPtr& error) {
  const platform::Error& first = platform::firstCause(*error);
  return &first != error.get() ? ErrorPtr(error, &first) : nullptr;
}

ToldFailure fromError(const ErrorPtr& given) {
  // An error about other errors says nothing itself.
  const ErrorPtr first = firstIn(given->userInfo());
  const ErrorPtr& error = first != nullptr ? first : given;
  return {error->domain(), error->code(), error->localizedDescription(), error->userInfo(),
          causeOf(error)};
}

ToldFailure fromDictionary(const Dictionary& failure) {
  Dictionary userInfo = failure[keys::kUserInfo].dictionaryValue();
  if (const ErrorPtr first = firstIn(userInfo)) return fromError(first);
  std::string text = failure[keys::kLocalizedDescription].textValue();
  if (text.empty()) text = userInfo[platform::kErrorMessageKey].textValue();
  ErrorPtr cause;
  if (const ErrorPtr under = userInfo[platform::kUnderlyingError].error()) {
    cause = ErrorPtr(under, &platform::firstCause(*under));
  }
  return {failure[keys::kDomain].textValue(), failure[keys::kCode].integerValue(), std::move(text),
          std::move(userInfo), std::move(cause)};
}

}  // namespace

ToldFailure readFailure(const Value& failure) {
  if (const ErrorPtr error = failure.error()) return fromError(error);
  // What an online upload tells: all that its task has raised.
  if (const ErrorPtr first = firstOf(failure)) return fromError(first);
  const Dictionary dictionary = failure.dictionaryValue();
  const Value& inner = dictionary[keys::kError];
  if (const ErrorPtr error = inner.error()) return fromError(error);
  if (const Dictionary* contexts = inner.dictionary()) {
    const ErrorPtr first = firstIn(*contexts);
    return first != nullptr ? fromError(first) : fromDictionary(*contexts);
  }
  return fromDictionary(dictionary);
}

}  // namespace varo::binary
