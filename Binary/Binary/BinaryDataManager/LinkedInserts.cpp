#include "Binary/Binary/BinaryDataManager/LinkedInserts.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Database/StatementGroup.h"
#include "Platform/Database/VRODatabaseAPI.h"
#include "Platform/Database/VROPreparedStatementBuilderFactory.h"

#include <cstddef>
#include <memory>
#include <utility>

namespace varo::binary {
namespace {

using platform::GroupOutcome;
using platform::InsertedRowId;
using platform::StatementBuilderType;
using platform::StatementGroup;
using platform::VROCommonUtility;
using platform::VRODatabaseAPI;
using platform::VROPreparedStatement;
using platform::VROPreparedStatementBuilder;
using platform::VROPreparedStatementBuilderFactory;

/// None where the database has no such statement.
template <typename Fill>
std::optional<VROPreparedStatement> makeStatement(const std::string& table,
                                                  StatementBuilderType type, const Fill& fill) {
  auto builder =
      VROPreparedStatementBuilderFactory::getPreparedStatementForTableName(table, type, nullptr);
  if (!builder) return std::nullopt;
  fill(*builder);
  return builder->build(nullptr);
}

std::optional<StatementGroup> makeGroup(const LinkedInsert& insert) {
  const auto pairs = VROCommonUtility::convertToOrderedKeyValuePairs;
  auto select = makeStatement(
      insert.linkedTable, StatementBuilderType::kSelect, [&](VROPreparedStatementBuilder& builder) {
        builder.addSelectColumns({insert.linkColumn}).addWhereConditionMap(pairs(insert.where));
      });
  auto row = makeStatement(insert.table, StatementBuilderType::kInsert,
                           [&](VROPreparedStatementBuilder& builder) {
                             builder.addInsertValuesMap(pairs(insert.values));
                           });
  auto link = makeStatement(
      insert.linkedTable, StatementBuilderType::kUpdate, [&](VROPreparedStatementBuilder& builder) {
        builder.addUpdateColumnsMap({{insert.linkColumn, Value(std::make_shared<InsertedRowId>())}})
            .addWhereConditionMap(pairs(insert.where));
      });
  if (!select || !row || !link) return std::nullopt;
  std::vector<VROPreparedStatement> statements;
  statements.reserve(2);
  statements.push_back(*std::move(row));
  statements.push_back(*std::move(link));
  return StatementGroup{
      *std::move(select), {{insert.linkColumn, platform::kSqlNullText}}, std::move(statements)};
}

LinkedRow linkedRow(const GroupOutcome& outcome) {
  if (!outcome) return {outcome.error(), 0};
  if (outcome->empty()) return {};
  return {outcome->front().insertedRow, outcome->back().changedRows};
}

}  // namespace

std::vector<LinkedRow> insertLinked(const std::string& databasePath,
                                    const std::vector<LinkedInsert>& inserts) {
  std::vector<LinkedRow> rows(inserts.size());
  const auto database = VRODatabaseAPI::initWithPath(databasePath, {}, nullptr);
  if (database == nullptr) return rows;
  std::vector<StatementGroup> groups;
  std::vector<std::size_t> places;  // of each group's insert
  for (std::size_t i = 0; i < inserts.size(); ++i) {
    std::optional<StatementGroup> group = makeGroup(inserts[i]);
    if (!group) continue;
    // Looked at first without a transaction: what is linked already has to wait for no lock.
    const auto found = database->executeSelectPreparedStatement(group->condition, nullptr);
    if (!found) break;  // it may be locked, and the others would wait as long
    if (found->empty() || (*found)[0] != Value(group->firstRow)) continue;
    groups.push_back(*std::move(group));
    places.push_back(i);
  }
  const std::vector<GroupOutcome> outcomes = database->executeGroups(groups);
  for (std::size_t i = 0; i < outcomes.size(); ++i) rows[places[i]] = linkedRow(outcomes[i]);
  return rows;
}

}  // namespace varo::binary
