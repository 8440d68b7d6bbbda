// SPDX-License-Identifier: MIT
#include <cmath>
#include <ctime>

#include "util.hpp"

namespace {

// A second as text. Thousands of reads fall into one second, so that the
// calendar is asked only when the second changes; each thread has its own.
struct second_text_s {
    bool filled = false;  // whether `second` and the lengths mean anything
    std::time_t second = 0;
    std::size_t dateTimeLength = 0;  // 0: this second has no date
    std::size_t zoneLength = 0;
    char dateTime[64] = {};  // 2026-03-01T08:05:09; the year may be long
    char zone[16] = {};      // +0100
};

constexpr std::size_t timeOfDayLength = 8;  // 08:05:09, at the end of dateTime

void fill(second_text_s* text, std::time_t second) {
    // localtime_r need not look whether the zone has changed.
    tzset();
    text->filled = true;
    text->second = second;
    text->dateTimeLength = 0;
    text->zoneLength = 0;
    std::tm calendar{};
    if (localtime_r(&second, &calendar) != nullptr) {
        text->dateTimeLength = std::strftime(text->dateTime, sizeof text->dateTime, "%FT%T", &calendar);
        text->zoneLength = std::strftime(text->zone, sizeof text->zone, "%z", &calendar);
    }
}

// Null when the second has no date.
const second_text_s* textOfSecond(std::time_t second) {
    thread_local second_text_s text;
    if (!text.filled || text.second != second) {
        fill(&text, second);
    }
    return text.dateTimeLength == 0 ? nullptr : &text;
}

// ".007": at least three digits.
void appendMilliseconds(const timeval* time, std::string* out) {
    const auto milliseconds = static_cast<unsigned long>(time->tv_usec / 1000);
    *out += '.';
    if (milliseconds > 999) {
        *out += std::to_string(milliseconds);
        return;
    }
    *out += static_cast<char>('0' + milliseconds / 100);
    *out += static_cast<char>('0' + milliseconds / 10 % 10);
    *out += static_cast<char>('0' + milliseconds % 10);
}

}  // namespace

void getISOString_noTZ(const timeval* time, std::string* out) {
    out->clear();
    if (const second_text_s* text = textOfSecond(time->tv_sec)) {
        out->assign(text->dateTime, text->dateTimeLength);
        appendMilliseconds(time, out);
    }
}

void getISOString(const timeval* time, std::string* out) {
    getISOString_noTZ(time, out);
    if (const second_text_s* text = textOfSecond(time->tv_sec)) {
        out->append(text->zone, text->zoneLength);
    }
}

void getISOString_timeOnly(const timeval* time, std::string* out) {
    if (const second_text_s* text = textOfSecond(time->tv_sec)) {
        out->append(text->dateTime + text->dateTimeLength - timeOfDayLength, timeOfDayLength);
        appendMilliseconds(time, out);
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
    // What no time holds, NaN included, becomes the time 0 rather than an
    // undefined conversion.
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
