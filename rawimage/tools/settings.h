#pragma once

#include "../../support/pstream.h"
#include "../export.h"
#include "../read/accepting_callback.h"

// Copies the file's render settings to `out`, which then holds just them: nothing when the file has none, and
// what was found when the parse broke off. `out` may be null. Returns true when the parse failed, false when
// all went well and also when the file cannot be opened (`out` is untouched then).
RAWIMAGE_EXPORT bool readMirtSettings(const char* fileName, PBufStream* out);

// Collects the settings. Other tags are skipped.
class RAWIMAGE_EXPORT ReadMirtSettingsCallback final : public MUtils::AcceptingCallback {
  public:
    int parseTag(RIF_TAG& tag) override;
    // Null is refused.
    bool setMirtSettings(PBufStream* source) override;

    PBufStream& settings() { return settings_; }

  private:
    PBufStream settings_;
};
