#pragma once

namespace zsbtool {

/// What the options that many commands share were given as.
struct Settings {
    bool json = false;   ///< one document for programs instead of text for people
    bool quiet = false;  ///< nothing but the result: no notes, no progress bar
    unsigned jobs = 1;   ///< threads for work on independent files, at least 1
    char letter = 0;     ///< 'T' or 'C' where the operator chose, else 0
    bool zsb = false;    ///< the operator chose .ZSB
    bool zrb = false;    ///< the operator chose .ZRB
};

}  // namespace zsbtool
