#include "Checks.h"

#include <algorithm>
#include <boost/shared_ptr.hpp>
#include <cstdio>
#include <exception>

#include "Browser.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace Check {

namespace {

// Longer than any orderly teardown of a stack's threads, far shorter than a deadlock.
constexpr Milliseconds kReleaseLimit{1000};
constexpr std::size_t kEvidenceItems = 3;

Verdict Pass(std::string evidence) { return {Outcome::Pass, std::move(evidence)}; }
Verdict Fail(std::string evidence) { return {Outcome::Fail, std::move(evidence)}; }
Verdict Skip(std::string evidence) { return {Outcome::Skip, std::move(evidence)}; }

std::string Join(const std::vector<std::string>& items) {
    std::string text;
    for (std::size_t i = 0; i < items.size() && i < kEvidenceItems; ++i) {
        text += (i == 0 ? "" : "; ") + items[i];
    }
    if (items.size() > kEvidenceItems) {
        text += " (and " + std::to_string(items.size() - kEvidenceItems) + " more)";
    }
    return text;
}

std::string Ms(Milliseconds time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.4g ms", time.count());
    return text;
}

class DiscardingClient : public UVAClient {
public:
    void handleEvent(UVAEvent* event) override { delete event; }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }
};

Feed MediaSourceOnly(const Feed& feed) { return Feed{std::string(), feed.mseType}; }

Verdict MakeAndDeleteStack(Context& context) {
    context.step("destroying the IntegrationLayer, which deletes the stack");
    context.harness.Stop();
    return Pass("the factory made a stack; the library took it over and deleted it");
}

Verdict CreateBackends(Context& context) {
    Harness& harness = context.harness;
    DiscardingClient client;
    std::vector<std::string> faults;
    std::string offered = "offers types";
    for (const auto type : {UVABackend::TYPE_MEDIA, UVABackend::TYPE_MEDIA_SOURCE, UVABackend::TYPE_VIDEO_BROADCAST}) {
        const std::string name = "type " + std::to_string(type);
        context.step("UVA_RequestBackend(" + std::to_string(type) + ")");
        UVABackend* backend = UVA_RequestBackend(type, &client);
        if (backend == nullptr) {
            faults.push_back(name + ": no back-end; the library logged: " + harness.LastLine(5));
            continue;
        }
        const bool broadcast = type == UVABackend::TYPE_VIDEO_BROADCAST;
        boost::shared_ptr<Velmora::IBackend> impl =
            broadcast ? harness.Layer().GetActiveVideoBroadcastImpl() : harness.Layer().GetActiveMediaBackendImpl();
        if (!impl && broadcast) {
            offered += "; type 2 not offered (empty answer: the browser's broadcast calls then fail)";
        } else if (!impl) {
            faults.push_back(name + ": empty answer, but every stack must play media");
        } else if (broadcast ? dynamic_cast<Velmora::IVideoBroadcastBackend*>(impl.get()) == nullptr
                             : dynamic_cast<Velmora::IMediaBackend*>(impl.get()) == nullptr) {
            faults.push_back(name + ": the back-end is not an " +
                             (broadcast ? "IVideoBroadcastBackend" : "IMediaBackend"));
        } else {
            offered += " " + std::to_string(type);
        }
        impl.reset();
        if (UVA_ReleaseBackend(backend) != UVA_STATUS_OK) {
            faults.push_back(name + ": the release was refused");
        }
    }
    return faults.empty() ? Pass(offered) : Fail(Join(faults));
}

Verdict CreateDrmBackends(Context& context) {
    Harness& harness = context.harness;
    const char** ids = nullptr;
    if (UVADRM_GetSupportedBackendIDs(ids) != UVA_STATUS_OK || ids == nullptr) {
        return Fail("UVADRM_GetSupportedBackendIDs gave no list");
    }
    DiscardingDrmClient client;
    std::vector<std::string> faults;
    std::string claimed;
    std::string declined;
    for (const char** id = ids; *id != nullptr; ++id) {
        context.step(std::string("CreateDrmBackend(\"") + *id + "\")");
        boost::shared_ptr<Velmora::IDrmBackend> direct;
        try {
            direct = harness.Layer().GetUvaImpl()->CreateDrmBackend(*id);
        } catch (const std::exception&) {
            // Declining by throwing is fine: the browser then gets no DRM back-end at all.
        } catch (...) {
            faults.push_back(std::string(*id) + ": CreateDrmBackend threw a foreign type");
            continue;
        }
        if (!direct) {
            declined += std::string(declined.empty() ? "" : ", ") + *id;
            continue;
        }
        direct.reset();
        claimed += std::string(claimed.empty() ? "" : ", ") + *id;
        UVADRMBackend* backend = UVADRM_RequestBackend(*id, &client);
        if (backend == nullptr) {
            faults.push_back(std::string(*id) +
                             ": UVADRM_RequestBackend gave nothing; the library logged: " + harness.LastLine(5));
            continue;
        }
        // The browser tells its DRM back-ends apart by this name.
        const char* name = backend->getId();
        if (name == nullptr || std::string(name) != *id) {
            faults.push_back(std::string(*id) + ": the DRM back-end calls itself \"" + (name ? name : "(null)") + "\"");
        }
        if (UVADRM_ReleaseBackend(backend) != UVA_STATUS_OK) {
            faults.push_back(std::string(*id) + ": the release was refused");
        }
    }
    delete[] ids;
    if (!faults.empty()) {
        return Fail(Join(faults));
    }
    return Pass("claims " + (claimed.empty() ? "no key system" : claimed) +
                (declined.empty() ? "" : "; declines " + declined));
}

Verdict EventClasses(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::Orderly, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    return seen.wrongClasses.empty() ? Pass("every event raised was of the class its code names")
                                     : Fail(Join(seen.wrongClasses));
}

Verdict EventValues(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::Orderly, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    return seen.insaneValues.empty() ? Pass("no negative size or position, every duration a number")
                                     : Fail(Join(seen.insaneValues));
}

Verdict NoEventAfterRelease(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::WhilePlaying, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    return seen.afterRelease.empty() ? Pass("released while playing; nothing arrived afterwards")
                                     : Fail(Join(seen.afterRelease));
}

Verdict ComponentLifetime(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::Orderly, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    if (seen.componentsAnnounced == 0) return Skip("the stack announced no components");
    if (!seen.componentFaults.empty()) return Fail(Join(seen.componentFaults));
    return Pass(std::to_string(seen.componentsAnnounced) + " components added, removed after stop while alive");
}

Verdict ComponentSelection(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::Orderly, true, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    if (!seen.selectionTried) return Skip("the stack announced no components");
    if (seen.selectionStatus != UVA_STATUS_OK) {
        return Fail("selectComponent of an announced component -> " + std::to_string(seen.selectionStatus) +
                    "; the library logged: " + context.harness.LastLine(4));
    }
    return Pass("selectComponent of an announced component reached the stack");
}

Verdict MediaSource(Context& context) {
    const Observations seen =
        PlaySession(context.harness, MediaSourceOnly(context.feed), Ending::Orderly, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    if (!seen.writeFailures.empty()) {
        return Fail(Join(seen.writeFailures) + "; the library logged: " + context.harness.LastLine(4));
    }
    if (seen.dataRequests == 0) return Fail("the stack never asked for data after play()");
    const std::string accepted =
        std::to_string(seen.dataRequests) + " data requests; " + std::to_string(seen.samplesWritten) + " samples";
    // The samples are made-up bytes: a stack that decodes them may say so, and the stream ends there.
    const std::string note = seen.decodeErrors == 0 ? "" : " (note: DecodeError for the made-up sample bytes)";
    if (!seen.endOfStreamWritten && seen.decodeErrors == 0) {
        return Fail("the stack stopped asking for data before the end of the stream (" +
                    std::to_string(seen.samplesWritten) + " samples written)");
    }
    return Pass(accepted + (seen.endOfStreamWritten ? " and the end of stream" : "") + " of " + seen.played +
                " accepted" + note);
}

Verdict ReleaseNotBlocked(Context& context) {
    const Observations seen = PlaySession(context.harness, context.feed, Ending::WhilePlaying, false, context.step);
    if (!seen.unavailable.empty()) return Skip(seen.unavailable);
    const std::string took = "UVA_ReleaseBackend while the stack raised events took " + Ms(seen.releaseTime);
    if (seen.releaseTime > kReleaseLimit) {
        return Fail(took + " (limit " + Ms(kReleaseLimit) +
                    "): something in the stack's teardown waits, e.g. a thread join behind a slot");
    }
    return Pass(took);
}

Verdict Exceptions(Context& context) {
    std::string unavailable;
    context.step("calling every playback operation");
    const std::vector<OperationTiming> timings = SweepOperations(context.harness, context.feed, unavailable);
    if (!unavailable.empty()) return Skip(unavailable);
    std::vector<std::string> foreign;
    for (const OperationTiming& timing : timings) {
        if (!timing.foreignExceptions.empty()) {
            foreign.push_back(timing.name + " (" + std::to_string(timing.foreignExceptions.size()) +
                              " times): " + timing.foreignExceptions.front());
        }
    }
    if (!foreign.empty()) {
        return Fail("threw a type derived from neither ExceptionBase nor std::exception: " + Join(foreign));
    }
    return Pass(std::to_string(timings.size()) + " operations; no foreign exception type");
}

Verdict Latency(Context& context) {
    std::string unavailable;
    context.step("timing every playback operation");
    std::vector<OperationTiming> timings = SweepOperations(context.harness, context.feed, unavailable);
    if (!unavailable.empty()) return Skip(unavailable);
    std::sort(timings.begin(), timings.end(),
              [](const OperationTiming& a, const OperationTiming& b) { return a.typical > b.typical; });
    const Milliseconds budget{context.budgetMs};
    std::vector<std::string> slowest;
    for (const OperationTiming& timing : timings) {
        if (slowest.size() < kEvidenceItems || timing.typical > budget) {
            slowest.push_back(timing.name + " " + Ms(timing.typical));
        }
    }
    const std::string report = "slowest: " + Join(slowest) + " (budget " + Ms(budget) + ")";
    return !timings.empty() && timings.front().typical > budget ? Fail(report) : Pass(report);
}

}  // namespace

const std::vector<CheckDefinition>& AllChecks() {
    static const std::vector<CheckDefinition> checks = {
        {"stack-factory", "the factory makes a stack that the library can take over and delete", MakeAndDeleteStack},
        {"create-backends", "types 0 and 1 give media back-ends, type 2 a broadcast back-end or an empty answer",
         CreateBackends},
        {"create-drm", "each key system is claimed (a DRM back-end of that name) or declined (empty or ExceptionBase)",
         CreateDrmBackends},
        {"event-classes", "every event raised is of the class its code names", EventClasses},
        {"event-values", "events carry sane values (no negative sizes, durations that are numbers)", EventValues},
        {"no-event-after-release", "no event reaches the browser after it released the back-end", NoEventAfterRelease},
        {"component-lifetime", "a component is added before it changes, and removed before it dies", ComponentLifetime},
        {"component-selection", "selecting a component the stack announced reaches the stack", ComponentSelection},
        {"media-source", "a Media Source back-end asks for data and accepts samples and the end of stream",
         MediaSource},
        {"release-not-blocked", "releasing a back-end while its threads raise events returns within 1 s",
         ReleaseNotBlocked},
        {"exceptions", "what the stack throws derives from ExceptionBase or std::exception", Exceptions},
        {"latency", "every browser call returns within the budget", Latency},
    };
    return checks;
}

}  // namespace Check
