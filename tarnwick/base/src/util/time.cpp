// SPDX-License-Identifier: MIT
#include <cmath>
#include <ctime>

#include "util.hpp"

namespace {

// A second as text. Thousands of reads are in one second, so the calendar is computed only when the
// second changes. Each thread has its own.
struct second_text_s {
    bool filled = false;  // whether `second` and the lengths mean anything
    std::time_t second = 0;
    std::size_t dateTimeLength = 0;  // 0: this second does not have a date
    std::size_t length = 0;          // of the whole text
    long milliseconds = -1;          // those in the text
    char whole[96] = {};             // 2026-03-01T08:05:09.000+0100; the year may be long
};

constexpr std::size_t millisecondsLength = 4;  // .007

constexpr std::size_t timeOfDayLength = 8;  // 08:05:09, at the end of dateTime

void fill(second_text_s* text, std::time_t second) {
    // localtime_r need not notice that the zone of the machine has changed; tzset does.
    tzset();
    text->filled = true;
    text->second = second;
    text->dateTimeLength = 0;
    text->milliseconds = -1;
    std::tm calendar{};
    if (localtime_r(&second, &calendar) != nullptr) {
        constexpr std::size_t zoneRoom = 16;
        text->dateTimeLength = std::strftime(text->whole, sizeof text->whole - millisecondsLength - zoneRoom,
                                             "%FT%T", &calendar);
        char* const zone = text->whole + text->dateTimeLength + millisecondsLength;
        text->length =
            text->dateTimeLength + millisecondsLength + std::strftime(zone, zoneRoom, "%z", &calendar);
    }
}

// The second of a time with its milliseconds written in, or null when it does not have a date.
// The caller handles milliseconds above 999, of a timeval that is not valid.
const second_text_s* textOf(const timeval& time) {
    thread_local second_text_s text;
    if (!text.filled || text.second != time.tv_sec) {
        fill(&text, time.tv_sec);
    }
    if (text.dateTimeLength == 0) {
        return nullptr;
    }
    const long number = time.tv_usec / 1000;
    if (number == text.milliseconds) {
        return &text;
    }
    text.milliseconds = number;
    const auto milliseconds = static_cast<unsigned long>(number);
    char* const digits = text.whole + text.dateTimeLength;
    digits[0] = '.';
    digits[1] = static_cast<char>('0' + milliseconds / 100 % 10);
    digits[2] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[3] = static_cast<char>('0' + milliseconds % 10);
    return &text;
}

// Appends a part of the text: from `begin` to the milliseconds, and with `zone` to its end.
void append(const second_text_s& text, std::size_t begin, bool zone, const timeval& time, std::string* out) {
    const auto milliseconds = static_cast<unsigned long>(time.tv_usec / 1000);
    const std::size_t middle = text.dateTimeLength + millisecondsLength;
    if (milliseconds <= 999) {
        out->append(text.whole + begin, (zone ? text.length : middle) - begin);
        return;
    }
    out->append(text.whole + begin, text.dateTimeLength - begin);
    *out += '.' + std::to_string(milliseconds);
    if (zone) {
        out->append(text.whole + middle, text.length - middle);
    }
}

}  // namespace

void getISOString_noTZ(const timeval* time, std::string* out) {
    out->clear();
    if (const second_text_s* text = textOf(*time)) {
        append(*text, 0, false, *time, out);
    }
}

void getISOString(const timeval* time, std::string* out) {
    out->clear();
    appendISOString(time, out);
}

void appendISOString(const timeval* time, std::string* out) {
    if (const second_text_s* text = textOf(*time)) {
        if (text->milliseconds >= 0 && text->milliseconds <= 999) {
            out->append(text->whole, text->length);
        } else {
            append(*text, 0, true, *time, out);
        }
    }
}

void getISOString_timeOnly(const timeval* time, std::string* out) {
    if (const second_text_s* text = textOf(*time)) {
        append(*text, text->dateTimeLength - timeOfDayLength, false, *time, out);
    }
}

void getISOtimeString(const timeval* time, std::string* out) {
    out->clear();
    getISOString_timeOnly(time, out);
}

std::string timeToISOstring_tv(const timeval& time, bool timeOnly) {
    std::string text;
    if (timeOnly) {
        getISOString_timeOnly(&time, &text);
    } else {
        getISOString(&time, &text);
    }
    return text;
}

std::string timeToISOstring_dbl(double seconds, bool timeOnly) {
    return timeToISOstring_tv(doubleSecToTimeval(seconds), timeOnly);
}

double getCurrentTime_dblSec() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return timevalToDoubleSec(now);
}

double timevalToDoubleSec(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

timeval doubleSecToTimeval(double seconds) {
    // A number that a time cannot hold, NaN included, becomes the time 0; its conversion would be
    // undefined.
    constexpr double limit = 9223372036854775808.0;  // 2 to the 63rd
    if (!(std::fabs(seconds) < limit)) {
        return {};
    }
    const double whole = std::floor(seconds);
    timeval time{};
    time.tv_sec = static_cast<std::time_t>(whole);
    time.tv_usec = static_cast<suseconds_t>((seconds - whole) * 1000000);
    if (time.tv_usec > 999999) {  // a negative number too small to differ from 0
        ++time.tv_sec;
        time.tv_usec = 0;
    }
    return time;
}

bool oldEnough(const timeval* start, const timeval* now, const timeval* age) {
    timeval passed{};
    timersub(now, start, &passed);
    return timercmp(&passed, age, >);
}
