// AM_MEDIA_TYPE with value semantics, and the helpers that copy and free the plain record.
//
// A record owns its format block (task memory) and a reference on pUnk. Records that cross an interface are task memory
// themselves and are freed with DeleteMediaType.

#pragma once

#include "platform/com.h"

namespace kvmpd {

// Makes *target a deep copy of source; what *target held before is not freed. E_OUTOFMEMORY: *target is then a copy
// without a format block.
HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source);

// Frees what the record owns and leaves it without a format block.
void FreeMediaType(AM_MEDIA_TYPE& type);

// A deep copy in task memory, or null when there is none.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* source);

// Frees the record and what it owns; null is allowed.
void DeleteMediaType(AM_MEDIA_TYPE* type);

class CMediaType : public AM_MEDIA_TYPE {
  public:
    CMediaType();
    explicit CMediaType(const AM_MEDIA_TYPE& type);
    CMediaType(const CMediaType& type);
    CMediaType& operator=(const CMediaType& type);
    ~CMediaType();

    // Replaces this type with a deep copy. E_OUTOFMEMORY leaves it as it was.
    HRESULT Set(const AM_MEDIA_TYPE& type);

    // Same types, sizes and format bytes.
    bool operator==(const CMediaType& other) const;

    // Whether the major type or the format type is null. A null subtype alone does not make a type a wildcard.
    bool IsPartiallySpecified() const;
    // Whether this type agrees with `pattern` in everything that the pattern names.
    bool MatchesPartial(const CMediaType& pattern) const;
};

}  // namespace kvmpd
