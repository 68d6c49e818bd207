// SPDX-License-Identifier: MIT
// A modem behind the router's AT service: answers commands on a UDP port of 127.0.0.1, by rules
// that anybody can write (see kHelp).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

constexpr char kHelp[] =
    R"(usage: modem_simulator [OPTION]...

Answers AT commands on a UDP port of 127.0.0.1 as the modem behind the router's AT
service does. Says on standard output when it is ready; ends on SIGTERM and SIGINT.

  --port N       listens on port N (5555)
  --no-echo      does not repeat commands, as after ATE0
  --numeric      final results as numbers, as after ATV0
  --rules FILE   further rules, which come before those below
  --show         prints what is received and sent
  --help         prints this

Try it: printf 'AT+CSQ\r' | nc -u -q1 127.0.0.1 5555

A rule is a line: a command, blanks, and what is answered to it. A "*" at the end of
a command stands for any rest. The words of an answer:

  "text"   characters, with \r \n \0 \\ \" and \xHH
  OK, ERROR, NO_CARRIER
           the final result, in words or as a number
  |        ends a datagram; the next word begins another
  fill:N   N times the letter x, at most 65507
  wait:N   waits for N milliseconds, at most 3600000
  silent   leaves out the repeated command
  off:E, off:V, on:E, on:V
           switches what ATE0, ATV0, ATE1 and ATV1 switch, for what follows

The first datagram begins with the repeated command; datagrams without a byte are not
sent. A command without a rule is answered with ERROR. Lines that begin with # are
comments. A word that is not one of these, or a number that cannot be, ends the simulator
at its start. The rules that are there:

)";

constexpr char kRules[] = R"(AT            OK
ATE0          off:E OK
ATE1          on:E OK
ATV0          off:V OK
ATV1          on:V OK
ATD*          NO_CARRIER
AT+CSQ        "\r\n+CSQ: 20,99\r\n" OK
AT+CGSN       "\r\n358240051111110\r\n" OK
AT+CPIN?      "\r\n+CME ERROR: 10\r\n"
AT+SIM=ECHO   | "\r\n+CSQ: 20,99\r\n" OK
AT+SIM=SPLIT  "\r\n+CSQ: " | "20,99\r\n" | OK
AT+SIM=LATE   wait:300 OK
AT+SIM=FULL   silent fill:2047
AT+SIM=LOUD   "\r\nRING\r\n" | "\r\nRING\r\n" | "\r\nRING\r\n" | OK
AT+SIM=JUNK   silent "\x00\xFF\x80ERRO" | "K\r\n" | "\"\\"
AT+SIM=DUMB   silent
)";

struct Rule {
  std::string command;
  std::string answer;
};

struct Settings {
  int port = 5555;
  bool echo = true;
  bool words = true;
  bool show = false;
  std::vector<Rule> rules;
};

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "modem_simulator: %s\n", what.c_str());
  std::exit(EXIT_FAILURE);
}

// What names the number where it cannot be one.
int number_of(std::string_view what, std::string_view text, int most) {
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0 || number > most) {
    fail(std::string(what) + ": not a number from 0 to " + std::to_string(most));
  }
  return number;
}

// ---- The words of an answer ----

std::string unescaped(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      bytes += text[i];
      continue;
    }
    const char kind = text[++i];
    if (kind == 'x') {
      bytes += static_cast<char>(std::strtol(std::string(text.substr(i + 1, 2)).c_str(), nullptr, 16));
      i += 2;
    } else {
      bytes += kind == 'r' ? '\r' : kind == 'n' ? '\n' : kind == '0' ? '\0' : kind;
    }
  }
  return bytes;
}

// The next word; a text with its quotes, as it stands. Nothing at the end.
std::optional<std::string> next_word(std::string_view& answer) {
  answer.remove_prefix(std::min(answer.find_first_not_of(" \t\r"), answer.size()));
  if (answer.empty()) return std::nullopt;
  std::size_t end = std::min(answer.find_first_of(" \t\r"), answer.size());
  if (answer[0] == '"') {
    for (end = 1; end < answer.size() && answer[end] != '"'; ++end) {
      if (answer[end] == '\\') ++end;
    }
    if (end >= answer.size()) fail("a text without its second quote: " + std::string(answer));
    ++end;
  }
  const std::string word(answer.substr(0, end));
  answer.remove_prefix(end);
  return word;
}

constexpr std::string_view kFill = "fill:";
constexpr std::string_view kWait = "wait:";
constexpr int kMostFill = 65507;  // bytes of a datagram
constexpr int kMostWait = 3600000;
constexpr std::array<std::string_view, 6> kPlainWords = {"|", "silent", "off:E", "off:V", "on:E", "on:V"};

struct Result {
  std::string_view word;
  std::string_view in_words;
  std::string_view as_number;
};

constexpr std::array<Result, 3> kResults = {{
    {"OK", "\r\nOK\r\n", "0\r"},
    {"NO_CARRIER", "\r\nNO CARRIER\r\n", "3\r"},
    {"ERROR", "\r\nERROR\r\n", "4\r"},
}};

bool is_known(std::string_view word) {
  const auto is_result = [&](const Result& result) { return result.word == word; };
  return word[0] == '"' || std::any_of(kResults.begin(), kResults.end(), is_result) ||
         std::find(kPlainWords.begin(), kPlainWords.end(), word) != kPlainWords.end();
}

// Of what a rule's line says, before anybody asks: a mistake in it is not found by a test that hangs.
void check_answer(const Rule& rule) {
  std::string_view rest = rule.answer;
  while (const auto word = next_word(rest)) {
    if (word->starts_with(kFill)) {
      number_of(*word, std::string_view(*word).substr(kFill.size()), kMostFill);
    } else if (word->starts_with(kWait)) {
      number_of(*word, std::string_view(*word).substr(kWait.size()), kMostWait);
    } else if (!is_known(*word)) {
      fail(rule.command + ": unknown word " + *word);
    }
  }
}

// ---- Rules ----

std::vector<Rule> rules_of(std::istream& lines) {
  std::vector<Rule> rules;
  for (std::string line; std::getline(lines, line);) {
    const auto command = line.find_first_not_of(" \t");
    if (command == std::string::npos || line[command] == '#') continue;
    const auto end = std::min(line.find_first_of(" \t", command), line.size());
    rules.push_back({line.substr(command, end - command), line.substr(end)});
    check_answer(rules.back());
  }
  return rules;
}

const Rule* rule_for(const std::vector<Rule>& rules, std::string_view command) {
  for (const Rule& rule : rules) {
    const std::string_view name = rule.command;
    const bool any_rest = name.ends_with('*');
    const std::size_t length = any_rest ? name.size() - 1 : name.size();
    if (any_rest ? command.size() < length : command.size() != length) continue;
    if (strncasecmp(name.data(), command.data(), length) == 0) return &rule;
  }
  return nullptr;
}

void show(const Settings& settings, char direction, std::string_view bytes) {
  if (!settings.show) return;
  std::printf("%c ", direction);
  for (const char c : bytes) {
    if (c == '\r') {
      std::printf("\\r");
    } else if (c == '\n') {
      std::printf("\\n");
    } else if (c >= ' ' && c <= '~') {
      std::putchar(c);
    } else {
      std::printf("\\x%02X", static_cast<unsigned char>(c));
    }
  }
  std::putchar('\n');
  std::fflush(stdout);
}

// ---- The service ----

class Modem {
 public:
  explicit Modem(Settings settings) : settings_(std::move(settings)) {
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    signals_ = signalfd(-1, &ends, SFD_CLOEXEC);
    socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(settings_.port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (signals_ < 0 || socket_ < 0 ||
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      fail("port " + std::to_string(settings_.port) + ": " + std::strerror(errno));
    }
    std::printf("modem_simulator: ready on 127.0.0.1:%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
  }

  void serve() {
    while (!ended(-1)) {
      std::array<char, 65536> bytes;
      peer_length_ = sizeof peer_;
      const ssize_t count = recvfrom(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                     reinterpret_cast<sockaddr*>(&peer_), &peer_length_);
      if (count >= 0) answer({bytes.data(), static_cast<std::size_t>(count)});
    }
  }

 private:
  // True when the simulator is to end; false when a command has come, or the time has passed.
  bool ended(int milliseconds) const {
    std::array<pollfd, 2> events = {pollfd{signals_, POLLIN, 0}, pollfd{socket_, POLLIN, 0}};
    poll(events.data(), milliseconds < 0 ? 2 : 1, milliseconds);
    return events[0].revents != 0;
  }

  void answer(std::string_view received) {
    show(settings_, '>', received);
    const std::string_view command = received.substr(0, received.find_first_of("\r\n"));
    const Rule* const rule = rule_for(settings_.rules, command);
    std::string_view rest = rule != nullptr ? std::string_view(rule->answer) : "ERROR";
    std::string datagram(settings_.echo ? received : "");
    while (const auto word = next_word(rest)) {
      if (*word == "|") {
        send(datagram);
      } else {
        add(*word, datagram);
      }
    }
    send(datagram);
  }

  void add(std::string_view word, std::string& datagram) {
    for (const Result& result : kResults) {
      if (word == result.word) datagram += settings_.words ? result.in_words : result.as_number;
    }
    if (word[0] == '"') datagram += unescaped(word.substr(1, word.size() - 2));
    if (word.starts_with(kFill)) {
      const int count = number_of(word, word.substr(kFill.size()), kMostFill);
      datagram.append(static_cast<std::size_t>(count), 'x');
    }
    if (word.starts_with(kWait) && ended(number_of(word, word.substr(kWait.size()), kMostWait))) {
      std::exit(EXIT_SUCCESS);
    }
    if (word == "silent") datagram.clear();
    if (word.ends_with(":E")) settings_.echo = word == "on:E";
    if (word.ends_with(":V")) settings_.words = word == "on:V";
  }

  void send(std::string& datagram) {
    if (datagram.empty()) return;
    show(settings_, '<', datagram);
    sendto(socket_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&peer_),
           peer_length_);
    datagram.clear();
  }

  Settings settings_;
  int signals_ = -1;
  int socket_ = -1;
  sockaddr_in peer_ = {};
  socklen_t peer_length_ = sizeof peer_;
};

int usage() {
  std::fputs("modem_simulator: unknown option; --help says which there are\n", stderr);
  return 2;
}

}  // namespace

int main(int count, char** arguments) {
  Settings settings;
  for (int i = 1; i < count; ++i) {
    const std::string_view option = arguments[i];
    const char* const value = i + 1 < count ? arguments[i + 1] : nullptr;
    if (option == "--help") {
      std::printf("%s%s", kHelp, kRules);
      return 0;
    }
    if (option == "--no-echo") {
      settings.echo = false;
    } else if (option == "--numeric") {
      settings.words = false;
    } else if (option == "--show") {
      settings.show = true;
    } else if (option == "--port" && value != nullptr) {
      settings.port = number_of("--port " + std::string(value), value, 65535);
      ++i;
    } else if (option == "--rules" && value != nullptr) {
      std::ifstream file(value);
      if (!file) fail(std::string(value) + " cannot be read");
      for (Rule& rule : rules_of(file)) settings.rules.push_back(std::move(rule));
      ++i;
    } else {
      return usage();
    }
  }
  std::istringstream rules(kRules);
  for (Rule& rule : rules_of(rules)) settings.rules.push_back(std::move(rule));
  Modem(std::move(settings)).serve();
}
