"""What is measured: the commands, their figures, and what is wanted of them."""
import os
import shlex

from cases import (Case, Figure, Peer, Row, at_least, at_most, below, every_run_at_least, median_at_least,
                   median_below)

BUILD = "build/bench"
ITSELF = "itself in a host of 4 MiB"
HEADERS = "CApi FrameReader IniFile Json LogLevel LogService LogServiceClient Mutex Option OutputRedirector " \
          "ProcessMonitor Socket StartProcess"


def processors():
    return sorted(os.sched_getaffinity(0))


def counted(count, noun):
    return f"{count} {noun}{'s' * (count != 1)}"


def driver(name, *arguments):
    return " ".join([f"{BUILD}/bench/{name}", *map(str, arguments)])


def rows(quick):
    """All of them; with short times, and without what takes long, for a quick run."""
    def seconds(full):
        return 0.1 if quick else full

    def google(benchmark, scale, name="real_time_ns", divisor=None, min_seconds=0.3):
        command = driver("oxutool_bench", f"--benchmark_min_time={0.01 if quick else min_seconds}",
                         "--benchmark_format=json",
                         shlex.quote(f"--benchmark_filter=^{benchmark}$"))
        return Figure(command, name, divisor, scale)

    def push():
        def figure(logger, burst):
            return Figure(driver("log_push", logger, burst, 10 if quick else 120), "ns_per_call")
        return [Case(f"{burst} records at a time, ns per call", figure("oxu", burst),
                     [Peer("bare calls", figure("bare", burst), at_most(1.1)),
                      Peer("spdlog, asynchronous", figure("spdlog", burst))], bar=f"push, {burst} at a time")
                for burst in (50, 100)]

    def producers():
        cases = []
        for count in (1, 2, 4, 8, 16):
            def figure(logger, name):
                return Figure(driver("log_stream", logger, count, 0, seconds(2)), name)
            def case(text, name, wanted, **more):
                peers = [Peer("spdlog, asynchronous", figure("spdlog", name))]
                cases.append(Case(f"{counted(count, 'producer')}, {text}", figure("oxu", name), peers, wanted, **more))
            case("records per second", "records_per_second", [every_run_at_least(300000), median_at_least(600000)],
                 more_is_better=True, bar=f"full speed, {counted(count, 'producer')}")
            case("p99 of a call, µs", "p99_us", [median_below(200, "µs")] if count >= 4 else [])
        return cases

    def streams():
        cases = []
        for cores in range(min(2, len(processors())), 0, -1):
            prefix = f"taskset -c {','.join(map(str, processors()[:cores]))} "
            for rate in (20000, 50000, 200000):
                for threads in (1, 4):
                    def figure(logger):
                        return Figure(prefix + driver("log_stream", logger, threads, rate, seconds(1)),
                                      "refused_percent")
                    work = f"{rate:,} per second from {counted(threads, 'thread')}, {counted(cores, 'core')}"
                    cases.append(Case(f"{work}, % refused", figure("oxu"),
                                      [Peer("spdlog, dropping the oldest", figure("spdlog"))], [median_below(1, "%")]))
        return cases

    def rest():
        def figure(logger, threads, rate):
            return Figure(driver("log_stream", logger, threads, rate, seconds(2)), "processor_percent")
        return [Case(f"{name}, % of a processor", figure("oxu", threads, rate),
                     [Peer("spdlog, asynchronous", figure("spdlog", threads, rate))])
                for name, threads, rate in (("at rest", 0, 0), ("1,000 records per second", 1, 1000))]

    def drain():
        producer_count = max(1, min(4, len(processors()) - 1))
        def figure(logger, name):
            return Figure(driver("log_drain", logger, producer_count, seconds(2)), name)
        def case(text, name, **more):
            return Case(text, figure("oxu", name),
                        [Peer("spdlog, a flush per line", figure("spdlog", name), at_least(1.1)),
                         Peer("bare write of ready lines", figure("bare", name))], more_is_better=True, **more)
        return [case("lines per second", "lines_per_second", bar="drain"),
                case("lines per second of the printing thread's processor time", "lines_per_processor_second"),
                Case("the logger's thread at work, % of the time", figure("oxu", "thread_percent"))]

    def json():
        shapes = {"Wide": "100,000 records", "Cached": "375 values in a cache", "Deep": "250,000 levels"}
        wanted = {"Build": at_most(1.15), "Copy": at_most(1.3), "Destroy": at_most(1.3), "Text": at_most(0.9)}
        def case(work, shape):
            def figure(divisor=None):
                return google(f"BM_Json<{work},.{shape}>/iterations:1/manual_time", 1e-3, divisor=divisor)
            verb = "append" if work == "Build" else work.lower()
            of_nlohmann = at_most(1) if (work, shape) == ("Text", "Cached") else None
            return Case(f"{verb}, {shapes[shape]}, µs", figure(),
                        [Peer("plain recursion", figure("of_plain"), wanted[work]),
                         Peer("nlohmann::json", figure("of_nlohmann"), of_nlohmann)],
                        bar=f"Json {verb}, {shapes[shape]}")
        return [case(work, shape) for work in wanted for shape in (["Cached"] if quick else shapes)
                if (work, shape) != ("Build", "Deep")]

    def ini():
        keys = 10000 if quick else 1000000
        def case(shuffled, limit):
            def figure(load):
                benchmark = f"BM_Ini{load}/shuffled:{shuffled}/keys:{keys}/iterations:1/real_time"
                return google(benchmark, 1e-6, "cpu_time_ns")
            order = "shuffled" if shuffled else "sorted"
            return Case(f"{keys:,} keys, {order}, ms of processor time", figure("Load"),
                        [Peer("inih", figure("Inih"), at_most(limit)),
                         Peer("read and memchr", figure("ReadAndMemchr"))], bar=f"INI, {order} keys")
        return [case(0, 0.4), case(1, 0.6)]

    def options():
        def case(work, text, wanted, **more):
            def figure(parser):
                return google(f"BM_Option{work}<{parser}>", 1e-3, "cpu_time_ns")
            return Case(f"{text}, µs", figure("Oxu"),
                        [Peer("getopt_long", figure("Getopt"), wanted), Peer("cxxopts", figure("Cxxopts")),
                         Peer("CLI11", figure("Cli11"))], **more)
        return [case("Parse", "parse", below(3), bar="options, parse"),
                case("RegisterAndParse", "register and parse", below(3), bar="options, register and parse")]

    def capture():
        def figure(who):
            return google(f"BM_Capture{who}/real_time", 1e-6, "bytes_per_second", min_seconds=1.5)
        return [Case("128 MiB, MB per second", figure("StartProcess"),
                     [Peer("bare read loop", figure("ReadLoop"), at_least(0.9)),
                      Peer("boost::process", figure("Boost")), Peer("popen and fread", figure("Popen"))],
                     more_is_better=True, bar="capture of 128 MiB")]

    def service():
        cases = []
        for piece, text in ((65536, "64 KiB"), (4096, "4 KiB"), (100, "100 bytes")):
            for clients in (1, 50):
                def figure(who):
                    return Figure(driver("log_service_speed", who, piece, clients, seconds(2)), "mb_per_second")
                work = f"{text}, {counted(clients, 'client')}"
                cases.append(Case(f"pieces of {work}, MB per second", figure("oxu"),
                                  [Peer("bare loop", figure("bare"), at_least(0.9))], more_is_better=True,
                                  bar=f"log service, {work}"))
        return cases

    def monitor():
        count = 200 if quick else 5000
        command = driver("monitor_scan", count, 2 if quick else 8)
        return [Case(f"a pass over {count:,} processes, µs of processor time", Figure(command, "monitor_us"),
                     [Peer("bare stat calls", Figure(command, "stat_us"), at_most(1.1)),
                      Peer("pidfd and epoll", Figure(command, "pidfd_us"))])]

    def launch():
        def figure(who, mebibytes):
            name = {"oxu": "BM_LaunchStartProcess"}.get(who, f"BM_Launch/{who}")
            return google(f"{name}/MiB:{mebibytes}/.*", 1e-3)
        cases = []
        for mebibytes in memory_sizes(quick):
            peers = [Peer("fork + exec", figure("fork", mebibytes)),
                     Peer("posix_spawn", figure("posix_spawn", mebibytes))]
            if mebibytes != 4:
                peers.insert(0, Peer(ITSELF, figure("oxu", 4), below(1.2)))
            text = f"{mebibytes} MiB" if mebibytes < 1024 else f"{mebibytes // 1024} GiB"
            cases.append(Case(f"host of {text}, µs", figure("oxu", mebibytes), peers, bar=f"launch, host of {text}"))
        return cases

    def build():
        def compiling(header):
            return Figure(f"c++ -std=c++17 -O2 -Iinclude -x c++ -include {header} -c /dev/null -o /dev/null",
                          "processor_seconds", None, 1000)
        cases = [Case(f"oxu/{header}.h, ms of the compiler", compiling(f"oxu/{header}.h"),
                      [Peer("`<string>` alone", compiling("string"))]) for header in HEADERS.split()]
        if quick:
            cases = cases[:2]
        stripped = f"{BUILD}/stripped.so"
        size = Figure(f"sh -c 'strip -o {stripped} {BUILD}/libOxuTool.so && stat -c \"bytes %s\" {stripped}'", "bytes",
                      None, 1 / 1024)
        return cases + [Case("shared library, stripped, KiB", size)]

    return [
        Row("push", "push_log, the caller", push()),
        Row("producers", "Producers at full speed", producers()),
        Row("streams", "Steady streams of records", streams()),
        Row("rest", "The logger at rest", rest()),
        Row("drain", "Lines out", drain()),
        Row("json", "Json", json()),
        Row("ini", "INI files", ini()),
        Row("options", "Options", options()),
        Row("capture", "Capture", capture()),
        Row("service", "Log service", service()),
        Row("monitor", "Monitor", monitor()),
        Row("launch", "Launch", launch()),
        Row("build", "What a build pays", build()),
    ]


def memory_sizes(quick):
    """Of the hosts that launch, in MiB: those that fit into the free memory twice."""
    with open("/proc/meminfo", encoding="ascii") as lines:
        available = next(int(line.split()[1]) >> 10 for line in lines if line.startswith("MemAvailable:"))
    return [size for size in (4, 256, 1024, 4096) if size * 2 <= available and not (quick and size > 256)]
