#include "devservice/faults.h"

#include "base/text.h"

#include <algorithm>
#include <array>

namespace quenmoor {
namespace {

struct FaultName {
    std::string_view name;
    FaultKind kind;
    std::string_view unit; // empty: has no value
    std::int64_t minimum = 0;
};

constexpr std::array kNames{
    FaultName{"refuse-rendezvous", FaultKind::RefuseRendezvous, ""},
    FaultName{"never-answer", FaultKind::NeverAnswer, ""},
    FaultName{"answer-late", FaultKind::AnswerLate, "MILLISECONDS"},
    FaultName{"garbage-response", FaultKind::GarbageResponse, ""},
    FaultName{"cut-off-response", FaultKind::CutOffResponse, ""},
    FaultName{"drop-after", FaultKind::DropAfter, "BYTES"},
    FaultName{"stop-reading", FaultKind::StopReading, "BYTES"},
    FaultName{"slow-reading", FaultKind::SlowReading, "BYTES_A_SECOND", 1},
    FaultName{"garbage-closing", FaultKind::GarbageClosing, ""},
    FaultName{"no-closing-document", FaultKind::NoClosingDocument, ""},
    FaultName{"smaller-final-size", FaultKind::SmallerFinalSize, ""},
    FaultName{"larger-final-size", FaultKind::LargerFinalSize, ""},
};

} // namespace

std::optional<Fault> parseFault(std::string_view text)
{
    const std::size_t equals = text.find('=');
    const auto* const known =
        std::find_if(kNames.begin(), kNames.end(),
                     [name = text.substr(0, equals)](const auto& k) { return k.name == name; });
    const bool hasValue = equals != std::string_view::npos;
    if (known == kNames.end() || hasValue == known->unit.empty())
        return std::nullopt;
    if (!hasValue)
        return Fault{known->kind};
    const auto value = wholeNumber(text.substr(equals + 1));
    if (!value || *value < known->minimum)
        return std::nullopt;
    return Fault{known->kind, *value};
}

std::string faultNames()
{
    std::string names;
    for (const FaultName& known : kNames) {
        names += names.empty() ? "" : ", ";
        names += known.name;
        if (!known.unit.empty())
            names.append("=").append(known.unit);
    }
    return names;
}

const Fault* findFault(const Faults& faults, FaultKind kind)
{
    const auto found = std::find_if(faults.begin(), faults.end(),
                                    [kind](const Fault& fault) { return fault.kind == kind; });
    return found != faults.end() ? &*found : nullptr;
}

} // namespace quenmoor
