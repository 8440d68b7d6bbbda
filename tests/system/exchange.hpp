// SPDX-License-Identifier: MIT
// The examples of a document, played with a real reader. A fenced block with the
// word "exchange" is one example; further words are the reader's model and
// arguments of the daemon. "json mode" and "json radio" blocks before it, below
// the same heading, are the mode and the software radio's scenario; so are the files
// that a line "Files: " links to. The documents themselves tell the rest of the notation.
#pragma once

#include <gtest/gtest.h>
#include <zmq.h>

#include <map>
#include <regex>

#include "support/reports.hpp"

struct example_s {
    std::string place;  // document and line
    std::string name;   // from the heading
    std::string mode, radio;
    std::string modeFile;  // what the linked file holds
    std::string model = "PN5100";
    std::vector<std::string> arguments;
    std::vector<std::string> lines;
};

inline std::ostream& operator<<(std::ostream& out, const example_s& example) {
    return out << example.place;
}

// A line with the blank or the line end that its last sign stands for.
inline std::string readable(const std::string& line) {
    return std::regex_replace(std::regex_replace(line, std::regex("·$"), " "), std::regex("↵$"), "\n");
}

inline std::vector<example_s> examplesOf(const std::string& document) {
    std::istringstream text(readTextFile(std::string(TARNWICK_SOURCE_DIR "/docs/") + document));
    std::vector<example_s> examples;
    std::map<std::string, int> uses;
    example_s next;
    std::string fence;  // what stands behind it, within a block
    int number = 1;
    for (std::string line; std::getline(text, line); ++number) {
        if (line.starts_with("```")) {
            fence = fence.empty() ? line.substr(3) + " " : "";
            if (fence.starts_with("exchange ") && fence != "exchange continued ") {
                examples.push_back(next);
                example_s& example = examples.back();
                example.name += "_" + std::to_string(++uses[next.name]);
                example.place = document + ":" + std::to_string(number);
                std::istringstream words(fence.substr(8));
                for (std::string word; words >> word;) {
                    word[0] == '-' ? example.arguments.push_back(word) : void(example.model = word);
                }
            }
        } else if (fence.starts_with("exchange ")) {
            examples.back().lines.push_back(readable(line));
        } else if (fence.starts_with("json ")) {
            (fence == "json mode " ? next.mode : next.radio) += line + "\n";
        } else if (line.starts_with("Files: ")) {
            const std::regex link(R"(\.\./(examples/(modes|scenarios)/[\w/-]+\.json))");
            for (std::sregex_iterator match(line.begin(), line.end(), link), end; match != end; ++match) {
                const std::string content = readTextFile(TARNWICK_SOURCE_DIR "/" + (*match)[1].str());
                ((*match)[2] == "modes" ? next.modeFile : next.radio) = content;
            }
        } else if (line.starts_with("##")) {
            next = {};
            std::ranges::copy_if(line, std::back_inserter(next.name), isalnum);
        }
    }
    return examples;
}

// The text as a regular expression, for itself alone.
inline std::string literal(const std::string& text) {
    return std::regex_replace(text, std::regex("[^\\w\\s]"), "\\$&");
}

// "*" stands for any text without a line end, "#" for a row of digits.
inline bool textFits(const std::string& pattern, const std::string& text) {
    const std::string any = std::regex_replace(literal(pattern), std::regex(R"(\\\*)"), ".*");
    const std::string expression = std::regex_replace(any, std::regex(R"(\\#)"), "[0-9]+");
    return pattern == text || std::regex_match(text, std::regex(expression));
}

// What the pattern names is there: an object may have more members, null is a
// member that is absent, "2..5" a number between.
inline bool jsonFits(const nlohmann::json& pattern, const nlohmann::json& value) {
    if (pattern.is_object() && value.is_object()) {
        return std::ranges::all_of(pattern.items(), [&](const auto& member) {
            return jsonFits(member.value(), value.value(member.key(), nlohmann::json()));
        });
    }
    if (pattern.is_array() && value.is_array()) {
        return std::ranges::equal(pattern, value, jsonFits);
    }
    if (pattern.is_string() && value.is_string()) {
        return textFits(pattern.get<std::string>(), value.get<std::string>());
    }
    if (pattern.is_string() && value.is_number()) {
        const std::string range = pattern;
        return value >= std::stod(range) && value <= std::stod(range.substr(range.find("..") + 2));
    }
    return pattern == value;
}

// One example under way.
struct play_s {
    explicit play_s(const example_s& example)
        : reader({.arguments = example.arguments,
                  .serverArguments = {"--profile", example.model},
                  .scenario = example.radio,
                  .prepare = [](const std::filesystem::path& directory) {
                      std::filesystem::copy(TARNWICK_SOURCE_DIR "/examples/simulator", directory);
                      std::filesystem::create_directory(directory / "logs");
                  }}) {
        data.waitForPublisher();
        lines.waitForPublisher();
    }

    // Reports are JSON, or lines of twctl that end in it. The members of "data" join the others.
    void takeAll() {
        frames_t texts = framesOf(data, std::chrono::milliseconds(0));
        const std::string output = outside == nullptr ? "" : outside->output();
        for (std::size_t end; (end = output.find('\n', taken)) != std::string::npos; taken = end + 1) {
            texts.push_back(output.substr(taken, end - taken));
        }
        for (const std::string& text : texts) {
            nlohmann::json report = nlohmann::json::parse(text.substr(text.find('{')));
            report.update(report.value("data", nlohmann::json::object()));
            report["from"] = text.substr(0, text.find('{'));
            reports.push_back(report);
        }
    }

    void request(const std::string& text, const std::string& reply) {
        if (text.starts_with("start")) {
            reports.clear();
        }
        if (reply.empty()) {  // the daemon does not live to give one
            EXPECT_THROW(ask(text, std::chrono::seconds(1)), std::runtime_error);
            return;
        }
        const std::string got = ask(text);
        ASSERT_TRUE(reply[0] == '{' ? jsonFits(nlohmann::json::parse(reply), nlohmann::json::parse(got))
                                    : textFits(reply, got))
            << reply << "\nis not\n"
            << got;
        if (text.starts_with("data_analytics ") && got == "Success") {
            const process_options_s options{{"watch", "tags", "--tcp"}, {}, {}};
            outside.reset(text.ends_with("OFF") ? nullptr
                                                : new process_s(TARNWICK_BIN_DIR "/twctl", options));
            taken = 0;
        }
    }

    // What a shell in the daemon's directory shows of a command. It knows the project's programs.
    void command(const std::string& text, const std::string& shown) const {
        process_s shell("bash",
                        {{"-c", "PATH='" TARNWICK_BIN_DIR "':$PATH; " + text}, {}, reader.directory.path});
        ASSERT_TRUE(shell.waitForExit());
        const std::string output = shell.output();
        EXPECT_TRUE(textFits(shown, output.substr(0, output.find_last_not_of('\n') + 1)))
            << shown << "\nis not\n"
            << output;
    }

    void radioEvent(const std::string& text) const {
        const socket_s client(ZMQ_REQ);
        ASSERT_EQ(zmq_connect(client.handle, "ipc:///tmp/rxe_engine"), 0);
        client.send({text});
        ASSERT_EQ(client.receive(), frames_t{"ok"});
    }

    void expectation(const std::string& text) {
        std::istringstream words(text.substr(0, text.find('{')));
        std::string word, amount;
        words >> word >> amount;
        const nlohmann::json pattern =
            nlohmann::json::parse(text.find('{') == std::string::npos ? "{}" : text.substr(text.find('{')));
        std::set<std::string> tags;
        std::size_t fitting = 0, tried = 0;
        const auto look = [&] {
            for (takeAll(); tried < reports.size(); ++tried) {
                if (jsonFits(pattern, reports[tried])) {
                    ++fitting;
                    tags.insert(reports[tried].value("idHex", "") + reports[tried].value("tag_id", ""));
                }
            }
            return word == "tags" ? tags.size() : fitting;
        };
        if (word == "watch") {
            eventually([&] { return look(), false; }, std::chrono::milliseconds(std::stoi(amount)));
        } else if (word == "each" || word == "none") {
            look();
            EXPECT_EQ(fitting, word == "each" ? tried : 0);
            EXPECT_GT(tried, 0U);
        } else if (word == "report") {
            EXPECT_TRUE(eventually([&] { return look() > 0; }));
        } else if (word == "tags" || word == "reports") {
            EXPECT_TRUE(eventually([&] { return look() >= std::stoul(amount); }));
            EXPECT_LE(look(), std::stoul(amount.substr(amount.rfind('.') + 1)));
        } else if (word == "line") {
            EXPECT_TRUE(eventually([&] {
                const frames_t message = lines.receive(std::chrono::milliseconds(20)).value_or(frames_t{});
                return std::ranges::any_of(
                    message, [&](const std::string& line) { return line.starts_with(amount + ","); });
            }));
        } else {
            ASSERT_EQ(word, "end");
            EXPECT_EQ(reader.daemon->waitForExit(), std::atoi(amount.c_str()));
        }
    }

    const consumer_s data{dataEndpoint};
    const consumer_s lines{gpioLedEndpoint};
    reader_s reader;
    std::unique_ptr<process_s> outside;   // a subscriber, while reports go to tcp
    std::size_t taken = 0;                // of its output
    std::vector<nlohmann::json> reports;  // since the last start
};

inline void playExample(const example_s& example) {
    play_s play(example);
    if (!example.mode.empty()) {
        ASSERT_EQ(ask("mode " + example.mode), "Success");
    }
    for (std::size_t i = 0; i < example.lines.size() && !testing::Test::HasFailure();) {
        const std::string line = example.lines[i++];
        SCOPED_TRACE(example.place + ": " + line);
        std::string reply;
        for (; i < example.lines.size() && example.lines[i].find_first_of(">!?$") != 0; ++i) {
            reply += (reply.empty() ? "" : "\n") + example.lines[i];
        }
        const std::string text = line.substr(2);
        line[0] == '>'   ? play.request(text, reply)
        : line[0] == '$' ? play.command(text, reply)
        : line[0] == '!' ? play.radioEvent(text)
                         : play.expectation(text);
        if (testing::Test::HasFailure() && line[0] != '$') {
            ADD_FAILURE() << play.reports.size() << " reports, the last: "
                          << (play.reports.empty() ? "" : play.reports.back().dump());
        }
    }
    if (!play.reader.daemon->waitForExit(std::chrono::milliseconds(0))) {
        EXPECT_EQ(play.reader.exit(), 0);
    }
}
