// velmora-trace: summarizes a session trace the library wrote.

#include <cstring>
#include <iostream>

#include "Summary.h"

int main(int argc, char** argv) {
    if (argc != 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
        std::cerr << "Usage: velmora-trace FILE\n"
                     "Prints per-operation call counts and latency percentiles (p50, p99, max), the slowest\n"
                     "calls, and media-stack events per second per back-end of a trace written by the library\n"
                     "(VELMORA_TRACE, Velmora::Trace::WriteTrace or velmora-simulator --trace-json).\n";
        return argc == 2 ? 0 : 2;
    }
    return TraceSummary::SummarizeFile(argv[1], std::cout, std::cerr);
}
