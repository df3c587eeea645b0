#pragma once

#include "varo/c/failure.h"

#ifdef __cplusplus
extern "C" {
#endif

/// What came of an operation: its results, or its failure. Never changes. All that its functions
/// give lives as long as it does.
///
/// - That of a transfer belongs to the transfer, or lives during the call of a `varo_done_fn`.
/// - One that a function gives as `varo_outcome*` belongs to the caller: `varo_outcome_free`.
typedef struct varo_outcome varo_outcome;

/// `VARO_OK`, or why it failed. `VARO_INVALID_ARGUMENT` for NULL.
VARO_API varo_code varo_outcome_code(const varo_outcome* outcome);
/// NULL for a success. For NULL, a failure that says so.
VARO_API const varo_failure* varo_outcome_failure(const varo_outcome* outcome);
/// How many results there are; 0 for a failure.
VARO_API size_t varo_outcome_count(const varo_outcome* outcome);
/// Where the file of a download or of a blob is. NULL where the outcome has none, as that of a
/// download into a function.
VARO_API const char* varo_outcome_path(const varo_outcome* outcome);
/// How many files an operation has removed; 0 for others.
VARO_API uint64_t varo_outcome_number(const varo_outcome* outcome);

/// Frees one that belongs to the caller. NULL is fine.
VARO_API void varo_outcome_free(varo_outcome* outcome);

#ifdef __cplusplus
}
#endif
