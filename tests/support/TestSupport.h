#pragma once
// Helpers of the tests: a scoped environment variable, a temporary folder, and a log
// sink that keeps what it is given.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ole/platform/settings/KvLog.h"

// Sets (or, for null, removes) an environment variable for a scope, then puts back what was.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name)) previous_ = old;
        set(value);
    }
    ~ScopedEnv() { set(previous_ ? previous_->c_str() : nullptr); }

    void set(const char* value)
    {
        value ? ::setenv(name_.c_str(), value, 1) : ::unsetenv(name_.c_str());
    }

private:
    std::string name_;
    std::optional<std::string> previous_;
};

// A fresh folder under the system's temporary folder, removed with all it holds.
class TempDir {
public:
    TempDir()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "kvplatform-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~TempDir() { std::error_code ignored; std::filesystem::remove_all(path_, ignored); }

    std::string file(const std::string& leaf) const { return (path_ / leaf).string(); }

private:
    std::filesystem::path path_;
};

inline std::string contents(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void put(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

// Installed for its lifetime; keeps every message with its channel.
class CapturingLogSink final : public iLogSink {
public:
    CapturingLogSink() : previous_(Kv::Platform::setLogSink(this)) {}
    ~CapturingLogSink() { Kv::Platform::setLogSink(previous_); }

    void write(Channel channel, const char* text) override
    {
        std::lock_guard lock(lock_);
        messages_.emplace_back(channel, text);
    }

    std::vector<std::pair<Channel, std::string>> messages()
    {
        std::lock_guard lock(lock_);
        return messages_;
    }

    // The number of application-log messages that contain every one of `parts`.
    int count(std::initializer_list<std::string> parts)
    {
        int n = 0;
        for (const auto& [channel, text] : messages()) {
            bool all = channel == AppLog;
            for (const std::string& part : parts) all = all && text.find(part) != std::string::npos;
            n += all;
        }
        return n;
    }

private:
    iLogSink* previous_;
    std::mutex lock_;
    std::vector<std::pair<Channel, std::string>> messages_;
};
