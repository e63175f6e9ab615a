#include "Runner.h"

#include "Velmora/Trace.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <sstream>

namespace Check {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kStderrLinesKept = 4;

// One line per message from the child: 'S' the step it starts, 'V' its verdict, 'T' a trace.
void Post(int fd, char kind, const std::string& text) {
    std::string line = std::string(1, kind) + text;
    for (char& c : line) {
        if (c == '\n') c = ' ';
    }
    line += '\n';
    for (std::size_t written = 0; written < line.size();) {
        const ssize_t n = write(fd, line.data() + written, line.size() - written);
        if (n <= 0) return;
        written += static_cast<std::size_t>(n);
    }
}

// The library records the whole session of a check while a trace directory is given; a failing check's
// recording is written there, and the terminal report and the JUnit file name the file.
std::string TracePath(const CheckDefinition& check, const Settings& settings) {
    return settings.traceDir.empty() ? std::string() : settings.traceDir + "/" + check.name + ".json";
}

// Recorded without a path, so that a passing check leaves no file behind.
void StartSessionTrace(const CheckDefinition& check, const Settings& settings) {
    if (!TracePath(check, settings).empty()) {
        Velmora::Trace::StartTrace(std::string());
    }
}

std::string SessionTrace(const CheckDefinition& check, const Settings& settings) {
    const std::string path = TracePath(check, settings);
    if (path.empty()) {
        return std::string();
    }
    std::string error;
    return Velmora::Trace::WriteTrace(path, &error) ? "session trace: " + path : "no session trace: " + error;
}

[[noreturn]] void RunChild(const CheckDefinition& check, const Settings& settings, int messages) {
    StartSessionTrace(check, settings);
    // Never deleted: the child ends with _exit, whatever state the stack is in.
    auto* harness = new Harness(settings.library, settings.options);
    Verdict verdict{Outcome::Fail, harness->Error()};
    if (harness->Ready()) {
        Context context{*harness, settings.budgetMs, settings.feed,
                        [messages](const std::string& step) { Post(messages, 'S', step); }};
        try {
            verdict = check.run(context);
        } catch (const std::exception& failure) {
            verdict = {Outcome::Fail, std::string("an exception reached the browser's side: ") + failure.what()};
        } catch (...) {
            verdict = {Outcome::Fail, "an exception of a foreign type reached the browser's side"};
        }
        if (verdict.outcome == Outcome::Fail) {
            Post(messages, 'T', SessionTrace(check, settings));
        }
    }
    Post(messages, 'V', std::string(1, static_cast<char>('0' + static_cast<int>(verdict.outcome))) + verdict.evidence);
    _exit(0);
}

struct ChildOutput {
    std::string lastStep = "starting";
    bool hasVerdict = false;
    Verdict verdict;
    std::string trace;
    std::deque<std::string> stderrTail;
};

void TakeLines(std::string& buffer, const std::function<void(const std::string&)>& take) {
    std::size_t end;
    while ((end = buffer.find('\n')) != std::string::npos) {
        take(buffer.substr(0, end));
        buffer.erase(0, end + 1);
    }
}

// Reads both pipes until the child closes them or the deadline passes; false on the deadline.
bool Collect(int messages, int errors, Clock::time_point deadline, ChildOutput& output) {
    std::string messageBuffer;
    std::string errorBuffer;
    pollfd fds[2] = {{messages, POLLIN, 0}, {errors, POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return false;
        if (poll(fds, 2, static_cast<int>(left)) < 0 && errno != EINTR) return false;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char chunk[4096];
            const ssize_t n = read(fds[i].fd, chunk, sizeof chunk);
            if (n <= 0) {
                fds[i].fd = -1;
                --open;
                continue;
            }
            (i == 0 ? messageBuffer : errorBuffer).append(chunk, static_cast<std::size_t>(n));
        }
        TakeLines(messageBuffer, [&](const std::string& line) {
            if (line.empty()) return;
            const std::string text = line.substr(1);
            if (line[0] == 'S') {
                output.lastStep = text;
            } else if (line[0] == 'T') {
                output.trace = text;
            } else if (line[0] == 'V' && !text.empty()) {
                output.hasVerdict = true;
                output.verdict = {static_cast<Outcome>(text[0] - '0'), text.substr(1)};
            }
        });
        TakeLines(errorBuffer, [&](const std::string& line) {
            output.stderrTail.push_back(line);
            if (output.stderrTail.size() > kStderrLinesKept) output.stderrTail.pop_front();
        });
    }
    if (!errorBuffer.empty()) output.stderrTail.push_back(errorBuffer);
    return true;
}

std::string StderrEvidence(const ChildOutput& output) {
    std::string text;
    for (const std::string& line : output.stderrTail) {
        text += (text.empty() ? "" : " / ") + line;
    }
    return text.empty() ? text : "; the stack's stderr: " + text;
}

}  // namespace

const char* Word(Outcome outcome) {
    switch (outcome) {
        case Outcome::Pass: return "PASS";
        case Outcome::Fail: return "FAIL";
        case Outcome::Skip: return "SKIP";
    }
    return "FAIL";
}

Report Run(const CheckDefinition& check, const Settings& settings) {
    Report report{check.name, check.clause, Outcome::Fail, "", 0.0, ""};
    const auto start = Clock::now();
    int messages[2];
    int errors[2];
    if (pipe(messages) != 0 || pipe(errors) != 0) {
        report.evidence = std::string("cannot make a pipe: ") + std::strerror(errno);
        return report;
    }
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t child = fork();
    if (child < 0) {
        report.evidence = std::string("cannot fork: ") + std::strerror(errno);
        return report;
    }
    if (child == 0) {
        close(messages[0]);
        close(errors[0]);
        dup2(errors[1], STDERR_FILENO);
        RunChild(check, settings, messages[1]);
    }
    close(messages[1]);
    close(errors[1]);
    ChildOutput output;
    const bool finished =
        Collect(messages[0], errors[0], start + std::chrono::seconds(settings.timeoutSeconds), output);
    if (!finished) {
        kill(child, SIGKILL);
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(messages[0]);
    close(errors[0]);
    report.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    report.trace = output.trace;

    if (!finished) {
        report.evidence = "hung: no verdict within " + std::to_string(settings.timeoutSeconds) + " s, stopped while " +
                          output.lastStep;
    } else if (output.hasVerdict) {
        report.outcome = output.verdict.outcome;
        report.evidence = output.verdict.evidence;
    } else if (WIFSIGNALED(status)) {
        report.evidence = std::string("crashed (") + strsignal(WTERMSIG(status)) + ") while " + output.lastStep;
    } else {
        report.evidence = "ended with exit status " + std::to_string(WEXITSTATUS(status)) + " and no verdict while " +
                          output.lastStep;
    }
    if (report.outcome == Outcome::Fail) {
        report.evidence += StderrEvidence(output);
    }
    return report;
}

void Print(const Report& report) {
    std::printf("%s %-24s %s\n", Word(report.outcome), report.name.c_str(), report.evidence.c_str());
    if (!report.trace.empty()) {
        std::printf("     %-24s %s\n", "", report.trace.c_str());
    }
    std::fflush(stdout);
}

namespace {

std::string Xml(const std::string& text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default:
                if (static_cast<unsigned char>(c) >= 0x20 || c == '\t') out += c;
        }
    }
    return out;
}

}  // namespace

bool WriteJUnit(const std::string& path, const std::vector<Report>& reports, double seconds) {
    std::size_t failures = 0;
    std::size_t skipped = 0;
    for (const Report& report : reports) {
        failures += report.outcome == Outcome::Fail;
        skipped += report.outcome == Outcome::Skip;
    }
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<testsuites>\n<testsuite name=\"velmora-check\" tests=\"" << reports.size() << "\" failures=\"" << failures
        << "\" errors=\"0\" skipped=\"" << skipped << "\" time=\"" << seconds << "\">\n";
    for (const Report& report : reports) {
        xml << "  <testcase classname=\"velmora-check\" name=\"" << Xml(report.name) << "\" time=\"" << report.seconds
            << "\">";
        if (report.outcome == Outcome::Fail) {
            xml << "<failure message=\"" << Xml(report.evidence) << "\">" << Xml(report.clause) << "</failure>";
        } else if (report.outcome == Outcome::Skip) {
            xml << "<skipped message=\"" << Xml(report.evidence) << "\"/>";
        }
        if (!report.trace.empty()) {
            xml << "<system-out>" << Xml(report.trace) << "</system-out>";
        }
        xml << "</testcase>\n";
    }
    xml << "</testsuite>\n</testsuites>\n";
    std::ofstream file(path);
    file << xml.str();
    return static_cast<bool>(file);
}

}  // namespace Check
