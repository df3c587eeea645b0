#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/// A header, or a parameter of an address.
typedef struct varo_pair {
  const char* name;
  const char* value;
} varo_pair;

/// Of an entry's value. 0 is none, so an entry that was forgotten is an error.
typedef enum varo_type {
  VARO_BOOLEAN = 1,
  VARO_INTEGER = 2,
  VARO_NUMBER = 3,
  VARO_TEXT = 4,

  VARO_TYPE_HAS_32_BITS = 0x7fffffff
} varo_type;

/// One entry of a file's metadata, one condition on it, or one key of a record: a name and a
/// value. Comes in arrays, so it keeps its size for good. Easiest made by the functions below.
typedef struct varo_entry {
  const char* name;
  varo_type type;
  union {
    int boolean;
    int64_t integer;
    double number;
    const char* text;
  };
  /// Bytes of a text, which may have NULs in it. 0: it ends at its first NUL.
  size_t text_length;
} varo_entry;

static inline varo_entry varo_boolean(const char* name, int value) {
  varo_entry entry;
  memset(&entry, 0, sizeof entry);
  entry.name = name;
  entry.type = VARO_BOOLEAN;
  entry.boolean = value;
  return entry;
}

static inline varo_entry varo_integer(const char* name, int64_t value) {
  varo_entry entry;
  memset(&entry, 0, sizeof entry);
  entry.name = name;
  entry.type = VARO_INTEGER;
  entry.integer = value;
  return entry;
}

static inline varo_entry varo_number(const char* name, double value) {
  varo_entry entry;
  memset(&entry, 0, sizeof entry);
  entry.name = name;
  entry.type = VARO_NUMBER;
  entry.number = value;
  return entry;
}

/// Refers to `value`, which ends with NUL and has to live as long as the entry is used.
static inline varo_entry varo_text(const char* name, const char* value) {
  varo_entry entry;
  memset(&entry, 0, sizeof entry);
  entry.name = name;
  entry.type = VARO_TEXT;
  entry.text = value;
  return entry;
}

#ifdef __cplusplus
}
#endif
