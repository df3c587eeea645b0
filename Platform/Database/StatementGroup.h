#pragma once

#include "Platform/Database/StatementOutcome.h"
#include "Platform/Database/VROPreparedStatement.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <string>
#include <vector>

namespace varo::platform {

/// Inserts, updates and deletions of which all are executed or none, in one transaction.
struct StatementGroup {
  /// A select. Nothing is executed where the first row that it gives is not `firstRow`.
  VROPreparedStatement condition;
  Dictionary firstRow;
  std::vector<VROPreparedStatement> statements;
};

/// One outcome for each statement, or none at all where nothing was executed. The one error is a
/// database that stayed locked, as it would for the next attempt.
using GroupOutcome = Result<std::vector<StatementOutcome>>;

/// A value that stands for the row id of the insert before it in its `StatementGroup`, as decimal
/// text. The statement fails outside of a group, and where that id is not positive. Immutable.
class InsertedRowId final : public Object {
 public:
  [[nodiscard]] std::string description() const override { return "the inserted row's id"; }
};

}  // namespace varo::platform
