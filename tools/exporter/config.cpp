// The exporter's modules file, read with yaml-cpp. Every fault names its
// line; no message ever carries a password.
#include "config.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <sstream>

#include "options.h"

namespace exporter {

namespace {

// yaml-cpp counts lines from 0.
int line_of(const YAML::Node &node) { return node.Mark().is_null() ? 0 : node.Mark().line + 1; }

[[noreturn]] void fail(const YAML::Node &node, const std::string &message)
{
    throw ConfigError(line_of(node), message);
}

std::string scalar(const YAML::Node &node, const std::string &key)
{
    if (!node.IsScalar())
        fail(node, key + " must be a string");
    return node.Scalar();
}

bool boolean(const YAML::Node &node, const std::string &key)
{
    bool value = false;
    if (!node.IsScalar() || !YAML::convert<bool>::decode(node, value))
        fail(node, key + " must be true or false");
    return value;
}

// A decimal integer, nothing else on the line.
bool integer(const YAML::Node &node, long &value)
{
    if (!node.IsScalar())
        return false;
    const std::string &text = node.Scalar();
    if (text.empty() || text.size() > 9)
        return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c)))
            return false;
    value = std::stol(text);
    return true;
}

uint8_t privilege_level(const YAML::Node &node)
{
    static const char *const names[] = {"CALLBACK", "USER", "OPERATOR", "ADMINISTRATOR", "OEM"};
    if (node.IsScalar()) {
        std::string word = node.Scalar();
        std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return std::toupper(c); });
        for (uint8_t i = 0; i < 5; ++i)
            if (word == names[i])
                return i + 1;
    }
    fail(node, "privilege must be one of CALLBACK, USER, OPERATOR, ADMINISTRATOR, OEM");
}

int cipher_suite(const YAML::Node &node)
{
    long id = -1;
    if (integer(node, id) && ((id >= 0 && id <= 3) || (id >= 15 && id <= 17)))
        return static_cast<int>(id);
    fail(node, "cipher_suite must be one of 0-3, 15-17");
}

int timeout_ms(const YAML::Node &node)
{
    long ms = 0;
    if (integer(node, ms) && ms >= 1 && ms <= 600000)
        return static_cast<int>(ms);
    fail(node, "timeout_ms must be a whole number of milliseconds from 1 to 600000");
}

std::vector<std::string> collectors(const YAML::Node &node)
{
    static const std::set<std::string> known{"sensors", "chassis", "sel", "device"};
    if (!node.IsSequence())
        fail(node, "collectors must be a list of sensors, chassis, sel, device");
    std::vector<std::string> out;
    for (const YAML::Node &item : node) {
        if (!item.IsScalar() || !known.count(item.Scalar()))
            fail(item, "collectors may only name sensors, chassis, sel, device");
        if (std::find(out.begin(), out.end(), item.Scalar()) != out.end())
            fail(item, "collector " + item.Scalar() + " is listed twice");
        out.push_back(item.Scalar());
    }
    return out;
}

std::string read_password_file(const YAML::Node &node, const std::string &base_dir)
{
    std::string path = scalar(node, "password_file");
    if (path.empty())
        fail(node, "password_file must name a file");
    if (path[0] != '/' && !base_dir.empty())
        path = base_dir + "/" + path;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        int err = errno;
        fail(node, "password_file " + path + " cannot be read: " + std::strerror(err));
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad())
        fail(node, "password_file " + path + " cannot be read");
    std::string password = text.str();
    while (!password.empty() && (password.back() == '\n' || password.back() == '\r'))
        password.pop_back();
    return password;
}

Module module(const std::string &name, const YAML::Node &node, const std::string &base_dir)
{
    if (!node.IsMap())
        fail(node, "module " + name + " must be a map of settings");
    Module m;
    m.name = name;
    std::set<std::string> seen;
    std::optional<YAML::Node> password, password_file;
    bool have_user = false;
    for (const auto &entry : node) {
        const YAML::Node &key = entry.first;
        const YAML::Node &value = entry.second;
        if (!key.IsScalar())
            fail(key, "module " + name + ": setting names must be plain words");
        const std::string &k = key.Scalar();
        if (!seen.insert(k).second)
            fail(key, "module " + name + ": " + k + " is given twice");
        if (k == "user") {
            m.user = scalar(value, "user");
            if (m.user.size() > cli::kMaxUserName)
                fail(value, "user is longer than 16 bytes");
            have_user = true;
        } else if (k == "password") {
            password = value;
        } else if (k == "password_file") {
            password_file = value;
        } else if (k == "privilege") {
            m.privilege = privilege_level(value);
        } else if (k == "cipher_suite") {
            m.cipher_suite = cipher_suite(value);
        } else if (k == "standard_keys") {
            m.standard_keys = boolean(value, "standard_keys");
        } else if (k == "ping") {
            m.ping = boolean(value, "ping");
        } else if (k == "timeout_ms") {
            m.timeout_ms = timeout_ms(value);
        } else if (k == "collectors") {
            m.collectors = collectors(value);
        } else {
            fail(key, "module " + name + ": unknown setting " + k +
                          " (known: user, password, password_file, privilege, cipher_suite, standard_keys, ping, "
                          "timeout_ms, collectors)");
        }
    }
    if (!have_user)
        fail(node, "module " + name + ": user is missing");
    if (password && password_file)
        fail(*password_file, "module " + name + ": give password or password_file, not both");
    if (!password && !password_file)
        fail(node, "module " + name + ": password or password_file is missing");
    if (password) {
        if (!password->IsScalar())
            fail(*password, "password must be a string");
        m.password = password->Scalar();
    } else {
        m.password = read_password_file(*password_file, base_dir);
    }
    // Neither message repeats the password.
    if (m.password.size() > cli::kMaxPassword)
        fail(password ? *password : *password_file, "module " + name + ": the password is longer than 20 bytes");
    return m;
}

}  // namespace

Config parse_config(const std::string &text, const std::string &base_dir)
{
    YAML::Node root;
    try {
        root = YAML::Load(text);
    } catch (const YAML::Exception &e) {
        // The parser's own words say what it met, never the text around it.
        throw ConfigError(e.mark.is_null() ? 0 : e.mark.line + 1, "not valid YAML: " + e.msg);
    }
    if (!root.IsMap())
        throw ConfigError(root.IsDefined() && !root.IsNull() ? line_of(root) : 1,
                          "the file must be a map with a modules key");
    Config config;
    std::optional<YAML::Node> modules;
    for (const auto &entry : root) {
        const YAML::Node &key = entry.first;
        if (key.IsScalar() && key.Scalar() == "modules") {
            if (modules)
                fail(key, "modules is given twice");
            modules = entry.second;
        } else {
            fail(key, "unknown key " + (key.IsScalar() ? key.Scalar() : std::string("(not a word)")) +
                          " (the file has one key, modules)");
        }
    }
    if (!modules)
        fail(root, "modules is missing");
    if (!modules->IsMap() || modules->size() == 0)
        fail(*modules, "modules must be a map of at least one named module");
    for (const auto &entry : *modules) {
        const YAML::Node &key = entry.first;
        if (!key.IsScalar() || key.Scalar().empty())
            fail(key, "module names must be plain words");
        const std::string &name = key.Scalar();
        if (config.modules.count(name))
            fail(key, "module " + name + " is given twice");
        config.modules.emplace(name, module(name, entry.second, base_dir));
    }
    return config;
}

Config load_config(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        int err = errno;
        throw ConfigError(0, path + ": cannot be read: " + std::strerror(err));
    }
    std::ostringstream text;
    text << in.rdbuf();
    std::string base_dir;
    if (auto slash = path.rfind('/'); slash != std::string::npos)
        base_dir = path.substr(0, slash == 0 ? 1 : slash);
    try {
        return parse_config(text.str(), base_dir);
    } catch (const ConfigError &e) {
        std::string where = path + ":" + (e.line > 0 ? std::to_string(e.line) + ":" : std::string());
        throw ConfigError(e.line, where + " " + e.what());
    }
}

}  // namespace exporter
