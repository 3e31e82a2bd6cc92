// kestrawind-sim: plays a modem, and the centre behind it, on a pseudo-terminal in real time, so
// that the real program can be run against it. Prints "READY <slave path>" once it serves.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/centre_factory.h"
#include "sim/pty_driver.h"
#include "sim/sim_modem.h"
#include "sim/tcp_driver.h"
#include "sim/ucp_centre.h"

namespace {

/// What --help prints.
constexpr char kHelp[] =
    "Usage: kestrawind-sim [OPTION]...\n"
    "Plays a modem, and an SMS centre behind it, on a pseudo-terminal in real time. Prints\n"
    "\"READY <pty>\" once it serves; point [Ports] of kestrawind.ini at that path.\n"
    "\n"
    "  --transcript FILE     write every byte each way, opens, closes and notes to FILE\n"
    "  --link PATH           also make PATH a symlink to the pty\n"
    "  --listen HOST:PORT    serve on TCP instead (a numeric host; port 0 takes a free one) and\n"
    "                        print \"READY HOST:PORT\": the modem behind a terminal server's raw\n"
    "                        port, for [Ports] n=tcp://HOST:PORT; a connection is an opening\n"
    "  --rfc2217             with --listen: behind an RFC 2217 port instead (rfc2217://): the\n"
    "                        line's settings and DTR show in the transcript, a DTR drop hangs\n"
    "                        up, and the carrier is reported to the program\n"
    "  --no-modem            with --listen: the centre alone, for SmsCenterAddress=HOST:PORT;\n"
    "                        the connection is the carrier, and the centre's hang-up closes it\n"
    "  --dial-result TEXT    the modem's answer to a dial (default CONNECT 9600)\n"
    "  --silent              the modem answers no dial\n"
    "  --result-delay MS     from the dial to the answer (default 300)\n"
    "  --split N[:MS]        the answer in N chunks, MS apart (default gap 50)\n"
    "  --ring                a RING line before the answer\n"
    "  --lfcr                result lines end in LF CR instead of CR LF\n"
    "  --echo                echo command bytes, as a modem in echo mode does\n"
    "  --carrier on|never|late:MS\n"
    "                        when the modem raises carrier detect after CONNECT. A pty has no\n"
    "                        carrier line: here it only shows in the transcript and the program\n"
    "                        always sees the carrier up. Its effect on the program is tested\n"
    "                        in-process under the virtual clock.\n"
    "  --centre none|tap|ucp the centre behind the modem (default none)\n"
    "  --opt KEY=VALUE       a setting of the centre (repeatable), see below\n"
    "  --runs N              end after the program closed the port N times; 0 never (default 1)\n"
    "  --max-seconds S       end after S seconds whatever happens (default 120)\n"
    "  --help                show this text\n"
    "\n"
    "TAP centre (--opt):\n"
    "  prompt_after=0    probes left unanswered before the prompt; -1 never answers\n"
    "  prompt=ID=        the prompt text\n"
    "  password=TEXT     the password a login must carry (default: any)\n"
    "  login_naks=0      login requests answered by NAK first\n"
    "  login=ack         the answer to a login (ack, nak, rs, esceot joined by +, or silent)\n"
    "  go_ahead=with     the go-ahead [p: with the ACK, later, or never\n"
    "  go_ahead_gap=200  ms from the ACK to a later go-ahead\n"
    "  block_naks=0      blocks answered by NAK first\n"
    "  block=ack         the answer to a block (as login; rs rejects the message)\n"
    "  nak_bad_blocks=1  a block with a bad layout or checksum gets NAK\n"
    "  prompt_delay=50  login_delay=50  block_delay=50   ms to each answer\n"
    "  split=1  split_gap=100   each answer in this many chunks, this far apart\n"
    "  drop=never        drop the line after probe:N, login:N or block:N\n"
    "\n"
    "UCP centre (--opt):\n";

/// Everything the command line sets.
struct SimOptions {
  kw::sim::ModemScenario scenario;
  kw::sim::PtyOptions pty;
  kw::sim::TcpOptions tcp;
  std::string centre = "none";
  std::map<std::string, std::string> centre_options;
  int runs = 1;
  int64_t max_seconds = 120;
  bool help = false;
};

/// A whole non-negative decimal number, or std::invalid_argument naming the option.
int64_t ParseCount(const std::string& option, const std::string& text) {
  if (text.empty() || text.size() > 12 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    throw std::invalid_argument(option + " wants a whole number, got \"" + text + "\"");
  }
  return std::stoll(text);
}

/// Reads the command line; raises std::invalid_argument with a one-line message.
SimOptions ParseOptions(const std::vector<std::string>& args) {
  SimOptions options;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& option = args[i];
    // The option's value: the next argument, which must be there.
    auto value = [&]() -> const std::string& {
      if (i + 1 >= args.size()) throw std::invalid_argument(option + " wants a value");
      return args[++i];
    };
    if (option == "--help") {
      options.help = true;
    } else if (option == "--link") {
      options.pty.link_path = value();
    } else if (option == "--transcript") {
      options.pty.transcript_path = value();
    } else if (option == "--listen") {
      options.tcp.listen = value();
    } else if (option == "--rfc2217") {
      options.tcp.mode = kw::sim::TcpMode::kTelnet;
    } else if (option == "--no-modem") {
      options.tcp.mode = kw::sim::TcpMode::kDirect;
    } else if (option == "--dial-result") {
      options.scenario.dial_result = value();
    } else if (option == "--silent") {
      options.scenario.silent = true;
    } else if (option == "--result-delay") {
      options.scenario.result_delay_ms = ParseCount(option, value());
    } else if (option == "--split") {
      // N, or N:MS for the gap between chunks
      const std::string& text = value();
      const size_t colon = text.find(':');
      options.scenario.split = static_cast<int>(ParseCount(option, text.substr(0, colon)));
      if (options.scenario.split < 1) throw std::invalid_argument("--split wants 1 or more");
      if (colon != std::string::npos) {
        options.scenario.split_gap_ms = ParseCount(option, text.substr(colon + 1));
      }
    } else if (option == "--ring") {
      options.scenario.leading_lines.push_back("RING");
    } else if (option == "--lfcr") {
      options.scenario.lf_cr = true;
    } else if (option == "--echo") {
      options.scenario.echo = true;
    } else if (option == "--carrier") {
      const std::string& text = value();
      if (text == "on") {
        options.scenario.carrier = kw::sim::CarrierMode::kAtConnect;
      } else if (text == "never") {
        options.scenario.carrier = kw::sim::CarrierMode::kNever;
      } else if (text.rfind("late:", 0) == 0) {
        options.scenario.carrier = kw::sim::CarrierMode::kLate;
        options.scenario.carrier_delay_ms = ParseCount(option, text.substr(5));
      } else {
        throw std::invalid_argument("--carrier wants on, never or late:MS, got \"" + text + "\"");
      }
    } else if (option == "--centre") {
      options.centre = value();
    } else if (option == "--opt") {
      const std::string& text = value();
      const size_t equals = text.find('=');
      if (equals == std::string::npos || equals == 0) {
        throw std::invalid_argument("--opt wants KEY=VALUE, got \"" + text + "\"");
      }
      options.centre_options[text.substr(0, equals)] = text.substr(equals + 1);
    } else if (option == "--runs") {
      options.runs = static_cast<int>(ParseCount(option, value()));
    } else if (option == "--max-seconds") {
      options.max_seconds = ParseCount(option, value());
      if (options.max_seconds < 1) throw std::invalid_argument("--max-seconds wants 1 or more");
    } else {
      throw std::invalid_argument("unknown option \"" + option + "\"");
    }
  }
  if (options.tcp.mode != kw::sim::TcpMode::kRaw && options.tcp.listen.empty()) {
    throw std::invalid_argument("--rfc2217 and --no-modem want --listen");
  }
  options.tcp.transcript_path = options.pty.transcript_path;
  return options;
}

/// Serves the peer with the driver until the limits are reached; the exit code.
template <typename Driver>
int Serve(Driver& driver, const std::string& where, const SimOptions& options, int stop_fd) {
  std::printf("READY %s\n", where.c_str());
  std::fflush(stdout);
  kw::sim::RunLimits limits;
  limits.runs = options.runs;
  limits.max_ms = options.max_seconds * 1000;
  limits.stop_fd = stop_fd;
  // With --runs 0 the time limit is the way out; otherwise the program never came back.
  if (driver.Run(limits) == kw::sim::RunEnd::kTimeLimit && options.runs > 0) {
    driver.Note("time limit reached");
    std::fprintf(stderr, "kestrawind-sim: stopped after %lld s without the runs asked for\n",
                 static_cast<long long>(options.max_seconds));
    return 1;
  }
  return 0;
}

/// SIGTERM and SIGINT as a readable descriptor, so the poll loop sees them; -1 if that fails.
int StopSignalFd() {
  sigset_t stops;
  sigemptyset(&stops);
  sigaddset(&stops, SIGTERM);
  sigaddset(&stops, SIGINT);
  if (sigprocmask(SIG_BLOCK, &stops, nullptr) != 0) return -1;
  return signalfd(-1, &stops, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

int main(int argc, char** argv) {
  SimOptions options;
  std::unique_ptr<kw::sim::Peer> centre;
  try {
    options = ParseOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (options.help) {
      std::printf("%s%s", kHelp, kw::sim::UcpCentre::OptionHelp());
      return 0;
    }
    centre = kw::sim::MakeCentre(options.centre, options.centre_options);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kestrawind-sim: %s (--help shows the options)\n", failure.what());
    return 2;
  }
  try {
    const kw::sim::UniqueFd stop(StopSignalFd());
    if (stop.get() < 0) throw std::runtime_error("can't catch SIGTERM and SIGINT");
    if (options.tcp.mode == kw::sim::TcpMode::kDirect) {
      if (!centre) throw std::invalid_argument("--no-modem wants a --centre");
      kw::sim::TcpDriver driver(*centre, options.tcp);
      return Serve(driver, driver.address(), options, stop.get());
    }
    kw::sim::SimModem modem(options.scenario);
    modem.SetCentre(std::move(centre));
    if (!options.tcp.listen.empty()) {
      kw::sim::TcpDriver driver(modem, options.tcp);
      return Serve(driver, driver.address(), options, stop.get());
    }
    kw::sim::PtyDriver driver(modem, options.pty);
    return Serve(driver, driver.slave_path(), options, stop.get());
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "kestrawind-sim: %s\n", failure.what());
    return 1;
  }
  return 0;
}
