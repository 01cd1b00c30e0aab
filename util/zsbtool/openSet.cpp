#include "util/zsbtool/openSet.h"

#include <cstring>
#include <system_error>

#include "util/common/scanFileWalk.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/messages.h"
#include "util/zsbtool/settings.h"
#include "util/zsbtool/text.h"

namespace zsbtool {

ScanSetChoice ChoiceOf(const Settings& settings) {
    ScanSetChoice choice;
    if (settings.letter != 0) {
        choice.letter = settings.letter;
    }
    if (settings.zsb || settings.zrb) {
        choice.restorable = settings.zrb;
    }
    return choice;
}

ScanSet OpenSet(const Settings& settings, const std::string& path) {
    try {
        ScanSet set(path, ChoiceOf(settings));
        const ScanSetListing& listing = set.Listing();
        if (listing.Chosen()) {
            Note(settings, Printable(path) + ": several sets lie there; taking that of " +
                               listing.first.Text());
        }
        return set;
    } catch (const std::system_error& error) {
        throw Failure(Printable(path), error.code().value());
    } catch (const std::runtime_error& error) {
        throw Failure(Printable(error.what()));
    }
}

std::string WhyUnread(const ScanFileWalk& walk) {
    switch (walk.Ended()) {
        case ScanFileWalk::End::kNone:
        case ScanFileWalk::End::kData:
            return "";
        case ScanFileWalk::End::kCut:
            return "it is cut short";
        case ScanFileWalk::End::kPart:
            return walk.NeverClosed() ? "" : "it ends inside a record";
        case ScanFileWalk::End::kStream:
            return walk.NeverClosed() ? "" : "its compressed stream is broken";
        case ScanFileWalk::End::kHeader:
            return "it has no header of a scan file";
        case ScanFileWalk::End::kUnreadable:
            return std::strerror(walk.SystemError());
    }
    return "";
}

}  // namespace zsbtool
