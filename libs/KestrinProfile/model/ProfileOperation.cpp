#include <algorithm>

#include <KestrinProfile/model/ProfileOperation.hpp>
#include <KestrinProfile/model/internal/OperationTable.hpp>

namespace KestrinProfile {

using internal::OperationRow;
using internal::operationTable;

std::string_view rawValue(ProfileOperation operation) {
    return internal::rowOf(operation).rawValue;
}

std::optional<ProfileOperation> profileOperation(std::string_view rawValue) {
    const auto row = std::ranges::find(operationTable, rawValue, &OperationRow::rawValue);
    if (row == operationTable.end()) return std::nullopt;
    return row->operation;
}

}  // namespace KestrinProfile
