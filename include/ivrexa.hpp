// ivrexa.hpp - ivrexa.h for C++17: owning types, callables, futures, and refusals of what the C functions cut silently.
//
// Header only: the standard library and ivrexa.h are all it needs, and nothing in the DLL depends on it. What it does
// not offer is done by the C functions beside it: a monitor, and a server whose own window procedure answers (_net).
//
//     int main(int, char **argv)                              // a server without a window
//     {
//         ivrexa::session session(argv[0]);
//         session.offer("Calc", [](ivrexa::command &c) {
//             c.output().add("total", c.input().get<uint32_t>("a") + c.input().get<uint32_t>("b"));
//             return ivrexa::result::ok;
//         });
//         session.publish();
//         session.wait_for_end();
//     }
//
//     ivrexa::session session(argv[0]);                       // a client
//     ivrexa::client calc(session, "Calc");
//     ivrexa::answer a = calc.execute(calc.request(100).add("a", 40u).add("b", 2u));
//     if (a.what == ivrexa::outcome::ok)
//         printf("%u\n", a.data.get<uint32_t>("total"));
//
// CONTENTS  refusals   fault, error, the limits max_...
//           data       writer, reader, texts, bytes, bytes_view
//           server     session, command, result
//           client     session, client, request, answer, outcome, document, notification, where
//           questions  offered(), find_service(), end_server()
//           Under "How it is done", in namespace detail and in members of those, stands nothing for hosts.
//
// TEXTS     std::string is ANSI, std::wstring is UTF-16, as in ivrexa.h.
// FAILURES  Yours (a name too long, a value that is not there) throw ivrexa::error; those of a command are its outcome.
//           What throws has not been done, unless it says otherwise.
// THREADS   Any thread, unless said otherwise; one object belongs to one thread at a time, except session and client.
//           A session with a window, and what registers through it (offer, publish, client, document), belong to the
//           window's thread. Nothing else of this layer may run on another thread while a session is destroyed, but
//           session::notify(), and commands that were asked for before. What such a command brings is neither used nor
//           let go before the session is gone: join its thread first.
// DATA      Readers, writers and answers end with the session: one that outlives it throws fault::usage instead of its
//           values, and keeps its handles of shared memory until the process ends.
// COMPILER  Exceptions are needed, run-time types are not. Built by clang over GCC's C++ library, std::future needs the
//           option -femulated-tls. docs/cpp.md says more.
#ifndef IVREXA_HPP
#define IVREXA_HPP

#if (defined(_MSC_VER) && !defined(_CPPUNWIND)) || (defined(__GNUC__) && !defined(__cpp_exceptions))
#error "ivrexa.hpp refuses by exceptions: compile with them (/EHsc, or without -fno-exceptions)"
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <exception>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "ivrexa.h"

/// The C++ layer over ivrexa.h.
namespace ivrexa {

// ---- What the C functions cut, drop or show a box for ------------------------------------------------------------

/// Why something of yours was refused; error::why() tells it.
enum class fault {
    service_name, ///< empty, longer than 63 characters, or with a backslash or a NUL
    path,         ///< empty, longer than 255 characters, or with a NUL
    value_name,   ///< longer than 254 characters, or with a NUL
    text,         ///< longer than its field, or with a NUL
    content,      ///< command data would come to 4 GiB less 1 KiB
    no_value,     ///< there is no value at that position or of that name
    wrong_type,   ///< there is one, of another type
    no_block,     ///< the system did not give the block for command data, or it has gone
    too_many,     ///< 16 services offered, 16 used, 32 documents
    usage         ///< called in an order, on a thread, or with an id that cannot work
};

/// The kind's name, as it stands above.
inline const char *to_string(fault f)
{
    constexpr const char *names[] = {"service_name", "path",       "value_name", "text",     "content",
                                     "no_value",     "wrong_type", "no_block",   "too_many", "usage"};
    return names[static_cast<std::size_t>(f)];
}

/// Thrown by everything here that refuses. Its text names what was refused: 64 characters of it at most, and a NUL in
/// it as \\0.
class error : public std::runtime_error {
public:
    /// Makes one of that kind with that text.
    error(fault why, const std::string &text) : std::runtime_error(text), m_why(why) {}
    /// The kind.
    fault why() const noexcept { return m_why; }

private:
    fault m_why;
};

inline constexpr std::size_t max_service_name = 63; ///< characters of a service's name
inline constexpr std::size_t max_value_name = 254;  ///< characters of a value's name
inline constexpr std::size_t max_path = 255;        ///< characters of a program's path
inline constexpr std::size_t max_short_text = 63;   ///< characters of the first text of a command
inline constexpr std::size_t max_long_text = 255;   ///< characters of its second and third text
inline constexpr std::size_t max_services = 16;     ///< services that a program offers, and as many that it uses
inline constexpr std::size_t max_documents = 32;    ///< documents that a program has open

/// A view of elements that somebody else owns.
template <typename T>
class span {
public:
    /// Of nothing.
    constexpr span() = default;
    /// Of `size` elements from `data` on.
    constexpr span(T *data, std::size_t size) : m_data(data), m_size(size) {}
    /// Of all elements of a container that has them in a row.
    template <typename container, typename = std::enable_if_t<
                                      std::is_convertible_v<decltype(std::declval<const container &>().data()), T *>>>
    constexpr span(const container &c) : m_data(c.data()), m_size(c.size())
    {
    }
    constexpr T *data() const { return m_data; }                       ///< the first element; may be null when empty
    constexpr std::size_t size() const { return m_size; }              ///< how many elements
    constexpr bool empty() const { return m_size == 0; }               ///< whether there is none
    constexpr T *begin() const { return m_data; }                      ///< the first element
    constexpr T *end() const { return m_data + m_size; }               ///< behind the last
    constexpr T &operator[](std::size_t i) const { return m_data[i]; } ///< element i, unchecked

private:
    T *m_data = nullptr;
    std::size_t m_size = 0;
};

/// The bytes of a buffer, owned.
using bytes = std::vector<std::uint8_t>;
/// The bytes of a buffer, somebody else's.
using bytes_view = span<const std::uint8_t>;

// ---- How it is done: checks, and who owns a container --------------------------------------------------------------

/// What the layer itself is made of; not for its users.
namespace detail {

struct core;

template <typename character>
bool has_nul(std::basic_string_view<character> text)
{
    return text.find(character()) != text.npos;
}

// The host's text in a text of ours, which would end at a NUL.
inline std::string quoted(std::string_view text)
{
    constexpr std::size_t most = 64;
    std::string all = "\"";
    for (char c : text.substr(0, most))
        if (c != '\0')
            all += c;
        else
            all += "\\0";
    return all + (text.size() > most ? "...\"" : "\"");
}

inline void check_service(const std::string &name)
{
    if (name.empty() || name.size() > max_service_name || has_nul(std::string_view(name)) ||
        name.find('\\') != name.npos)
        throw error(fault::service_name, "a service's name has 1 to 63 characters, without backslash or NUL: " +
                                             quoted(name) + " has " + std::to_string(name.size()));
}

inline void check_path(const std::string &path)
{
    if (path.empty() || path.size() > max_path || has_nul(std::string_view(path)))
        throw error(fault::path, "a program's path has 1 to 255 characters without NUL: " + quoted(path) + " has " +
                                     std::to_string(path.size()));
}

inline void check_text(std::wstring_view text, std::size_t most, const char *which)
{
    if (text.size() > most || has_nul(text))
        throw error(fault::text, std::string(which) + " takes " + std::to_string(most) +
                                     " characters without NUL; this one has " + std::to_string(text.size()));
}

inline void check_value_name(std::string_view name)
{
    if (name.size() > max_value_name || has_nul(name))
        throw error(fault::value_name, "a value's name has up to 254 characters without NUL: " + quoted(name) +
                                           " has " + std::to_string(name.size()));
}

template <typename character>
void check_value_text(std::string_view name, std::basic_string_view<character> value)
{
    if (has_nul(value))
        throw error(fault::text, "the text of " + quoted(name) + " holds a NUL and would end there");
}

inline const char *type_name(tipoDato type)
{
    constexpr const char *names[] = {"no type",
                                     "uint8_t",
                                     "uint16_t",
                                     "uint32_t",
                                     "double",
                                     "bytes",
                                     "ANSI text",
                                     "wide text",
                                     "window",
                                     "array of ANSI texts",
                                     "array of wide texts"};
    return names[static_cast<std::size_t>(type)];
}

inline bool is_offered(const std::string &service, std::uint16_t *version = nullptr)
{
    return ivrexa_hay_servicio_registrado(service.c_str(), version) == CIERTO;
}

// How many sessions this program has ended. Each end takes the memory of all command data with it.
inline std::atomic<std::uint32_t> &sessions_ended()
{
    static std::atomic<std::uint32_t> count{0};
    return count;
}

// Destroys a container, unless a session's end has done so.
struct destroys {
    std::uint32_t made_in = sessions_ended();
    bool outlived() const { return made_in != sessions_ended(); }
    void operator()(comdat *c) const
    {
        if (!outlived())
            ivrexa_destruye_datos_comando(c);
    }
};
using owned = std::unique_ptr<comdat, destroys>;

inline void check_alive(const owned &data, const std::string &service)
{
    if (data.get_deleter().outlived())
        throw error(fault::usage, "this command data of " + quoted(service) + " ended with its session");
}

template <typename>
inline constexpr bool never = false; // only once a template is used

} // namespace detail

/// The three wide texts that go with a command, or with its answer.
struct texts {
    std::wstring first;  ///< at most 63 characters
    std::wstring second; ///< at most 255
    std::wstring third;  ///< at most 255

    /// Throws fault::text where one is longer than its field, or holds a NUL.
    void check() const
    {
        detail::check_text(first, max_short_text, "the first text");
        detail::check_text(second, max_long_text, "the second text");
        detail::check_text(third, max_long_text, "the third text");
    }
};

// ---- Command data ------------------------------------------------------------------------------------------------

/// Writes command data: add() for each value, in the order in which the other side counts them. It owns what it wrote.
class writer {
public:
    /// For a command's input, which a client writes. The service need not be registered yet.
    static writer input(const std::string &service) { return writer(service, ivrexa_crea_datos_comando_entrada); }
    /// For a command's output, or what goes with a notification: a server writes both.
    static writer output(const std::string &service) { return writer(service, ivrexa_crea_datos_comando_salida); }

    /// Appends a value. Names may repeat: reader finds the first. Numbers of other types have no value of their size:
    /// say uint8_t{1}, uint16_t{1}, 1u or 1.0. An array of wide texts does not come back from any host: add single
    /// ones. A null pointer is a missing text. Throws fault::value_name, text, content, or usage once the data is
    /// stored.
    writer &add(std::string_view name, std::uint8_t value) { return put(name, 1, ivrexa_graba_byte, value); }
    /// @copydoc add
    writer &add(std::string_view name, std::uint16_t value) { return put(name, 2, ivrexa_graba_ushort, value); }
    /// @copydoc add
    writer &add(std::string_view name, std::uint32_t value) { return put(name, 4, ivrexa_graba_ulong, value); }
    /// @copydoc add
    writer &add(std::string_view name, unsigned long value) // a DWORD
    {
        static_assert(sizeof value == sizeof(std::uint32_t), "there is no value of another size");
        return add(name, static_cast<std::uint32_t>(value));
    }
    /// @copydoc add
    writer &add(std::string_view name, double value) { return put(name, 8, ivrexa_graba_double, value); }
    /// @copydoc add
    writer &add(std::string_view name, ivrexa_hwnd value) { return put(name, 8, ivrexa_graba_hwnd, value); }
    /// @copydoc add
    writer &add(std::string_view name, bytes_view value);
    /// @copydoc add
    writer &add(std::string_view name, const bytes &value) { return add(name, bytes_view(value)); }
    /// @copydoc add
    writer &add(std::string_view name, std::string_view value) { return text<char>(name, value, nullptr); }
    /// @copydoc add
    writer &add(std::string_view name, const std::string &value) { return text<char>(name, value, value.c_str()); }
    /// @copydoc add
    writer &add(std::string_view name, const char *value)
    {
        return value != nullptr ? text<char>(name, value, value) : add_null_text(name);
    }
    /// @copydoc add
    writer &add(std::string_view name, std::wstring_view value) { return text<wchar_t>(name, value, nullptr); }
    /// @copydoc add
    writer &add(std::string_view name, const std::wstring &value) { return text<wchar_t>(name, value, value.c_str()); }
    /// @copydoc add
    writer &add(std::string_view name, const wchar_t *value)
    {
        return value != nullptr ? text<wchar_t>(name, value, value) : add_null_wide_text(name);
    }
    /// @copydoc add
    writer &add(std::string_view name, const std::vector<std::string> &value);
    /// Not offered, so that no number changes its type on the way.
    template <typename T, typename = std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>>>
    writer &add(std::string_view name, T value) = delete;

    /// Appends an ANSI text that is missing, which is not an empty one.
    writer &add_null_text(std::string_view name)
    {
        return put(name, length, ivrexa_graba_cadena_ansi, static_cast<const char *>(nullptr));
    }
    /// Appends a wide text that is missing.
    writer &add_null_wide_text(std::string_view name)
    {
        return put(name, length, ivrexa_graba_cadena_unicode, static_cast<const wchar_t *>(nullptr));
    }

    /// How many values have been written.
    std::size_t size() const { return usable() ? ivrexa_numero_valores(m_data.get()) : 0; }
    /// The service that the data is for.
    const std::string &service() const { return m_service; }

    /// Stores what was written in a block of its own, once, and returns its id for the C functions; 0 without values.
    /// The writer keeps the block alive. It asks each time whether somebody offers the service, which leaves a handle
    /// open; without values it does not. Throws fault::no_block where nobody does: the data can be stored once somebody
    /// does; and where the system gives no block, after the library's box: then it is of no more use.
    std::uint32_t store()
    {
        if (size() != 0 && !detail::is_offered(m_service))
            throw error(fault::no_block, "nobody offers " + detail::quoted(m_service) + ": its data has no place yet");
        return store_in_channel();
    }

    /// The C container, for what this class does not offer; the writer goes on owning it. Null once released.
    comdat *get() const { return m_data.get(); }
    /// Hands the C container over: the caller destroys it, and the writer is of no more use.
    comdat *release() { return m_data.release(); }

private:
    friend class client;
    friend class command;
    friend struct detail::core;

    static constexpr std::uint64_t length = sizeof(std::uint32_t);
    static constexpr std::uint64_t most_bytes = (std::uint64_t{1} << 32) - 1025;

    writer(const std::string &service, comdat *(*make)(const char *)) : m_service(service)
    {
        detail::check_service(service);
        m_data.reset(make(service.c_str()));
    }

    bool usable() const { return m_data != nullptr && !m_data.get_deleter().outlived(); }

    void check_usable() const
    {
        if (m_data == nullptr)
            throw error(fault::usage, "the command data of " + detail::quoted(m_service) +
                                          " was handed over, and takes no more values");
        detail::check_alive(m_data, m_service);
        if (m_stored)
            throw error(fault::usage, "the command data of " + detail::quoted(m_service) +
                                          " is stored once, and takes no more values then");
    }

    // size: what the value takes behind its type and its name. Returns what all of it takes then.
    std::uint64_t check_fits(std::string_view name, std::uint64_t size) const
    {
        check_usable();
        detail::check_value_name(name);
        const std::uint64_t all = m_bytes + 2 + name.size() + 1 + size;
        if (size > most_bytes || all > most_bytes)
            throw error(fault::content, "command data holds less than 4 GiB: no room for " + detail::quoted(name));
        return all;
    }

    template <typename function, typename... values>
    writer &put(std::string_view name, std::uint64_t size, function appends, values... v)
    {
        const std::uint64_t all = check_fits(name, size);
        appends(m_data.get(), std::string(name).c_str(), v...);
        m_bytes = all;
        return *this;
    }

    static auto text_appender(const char *) { return ivrexa_graba_cadena_ansi; }
    static auto text_appender(const wchar_t *) { return ivrexa_graba_cadena_unicode; }

    // ended: the same text where a NUL is known to follow it, or null. Nothing is read or copied of a text that does
    // not fit.
    template <typename character>
    writer &text(std::string_view name, std::basic_string_view<character> value, const character *ended)
    {
        const std::uint64_t size =
            value.size() < most_bytes ? length + (std::uint64_t{value.size()} + 1) * sizeof(character) : value.size();
        check_fits(name, size);
        detail::check_value_text(name, value);
        if (ended != nullptr)
            return put(name, size, text_appender(ended), ended);
        return put(name, size, text_appender(ended), std::basic_string<character>(value).c_str());
    }

    // Where the service is known to have a channel. What was tried in vain holds a block all the same, and may not be
    // tried again.
    std::uint32_t store_in_channel()
    {
        check_usable();
        if (size() == 0)
            return 0;
        m_stored = true;
        std::uint32_t id = ivrexa_guarda_datos(m_data.get());
        if (id == 0)
            throw error(fault::no_block,
                        "the system gives no block for the command data of " + detail::quoted(m_service));
        return id;
    }

    std::string m_service;
    detail::owned m_data;
    std::uint64_t m_bytes = length; // the count of values, at the head
    bool m_stored = false;
};

inline writer &writer::add(std::string_view name, bytes_view value)
{
    if (value.data() == nullptr && !value.empty())
        throw error(fault::usage, "the bytes of " + detail::quoted(name) + " lie nowhere");
    const std::uint64_t size = value.size() < most_bytes ? length + value.size() : value.size();
    return put(name, size, ivrexa_graba_buffer, static_cast<const void *>(value.data()),
               static_cast<std::uint32_t>(value.size()));
}

inline writer &writer::add(std::string_view name, const std::vector<std::string> &value)
{
    std::vector<const char *> pointers;
    std::uint64_t size = length;
    for (const std::string &one : value) {
        detail::check_value_text(name, std::string_view(one));
        pointers.push_back(one.c_str());
        size += 2 * length + one.size() + 1; // a place in the table, a length, the text
    }
    return put(name, size, ivrexa_graba_arr_cadenas_ansi, static_cast<const char *const *>(pointers.data()),
               static_cast<std::uint32_t>(pointers.size()));
}

/// Reads command data, by position from 0 or by name. All of it has been looked at when the reader is there, in the
/// order in which it was written; so the order in which you ask does not matter, and asking shows no box.
class reader {
public:
    /// Of no data: no values.
    reader() = default;

    /// Reads a command's input from the block of that id. 0 gives a reader without values. Throws fault::no_block where
    /// the block has gone; the library shows a box then, and for content that does not keep to the format.
    static reader open_input(const std::string &service, std::uint32_t id) { return open(service, id, CIERTO); }
    /// The same for a command's output, or for what goes with a notification.
    static reader open_output(const std::string &service, std::uint32_t id) { return open(service, id, FALSO); }
    /// Reads somebody else's container; null has no values. It must outlive the reader, which does not destroy it.
    static reader borrow(comdat *data)
    {
        reader r;
        r.look(data);
        return r;
    }

    /// How many values there are: all up to the first that the content does not bear out.
    std::size_t size() const { return m_values.size(); }
    /// Whether there is none.
    bool empty() const { return m_values.empty(); }
    /// The name of the value there. Throws fault::no_value.
    const std::string &name(std::size_t i) const { return at(i).name; }
    /// The type of the value there. Throws fault::no_value.
    tipoDato type(std::size_t i) const { return at(i).type; }
    /// Whether the value there is a missing text. Throws fault::no_value.
    bool is_null(std::size_t i) const { return is_text(at(i).type) && at(i).data == nullptr; }

    /// The position of the first value of that name; none without one.
    std::optional<std::size_t> position(std::string_view name) const
    {
        for (std::size_t i = 0; i < m_values.size(); i++)
            if (m_values[i].name == name)
                return i;
        return std::nullopt;
    }
    /// Whether there is a value of that name.
    bool contains(std::string_view name) const { return position(name).has_value(); }

    /// The value there, as uint8_t, uint16_t, uint32_t, unsigned long, double, ivrexa_hwnd, std::string, std::wstring,
    /// bytes, std::vector<std::string>, or, without a copy and as long as the reader lives, std::string_view or
    /// bytes_view. A missing text is an empty one; as std::optional<std::string> or std::optional<std::wstring> it is
    /// none. Throws fault::no_value and fault::wrong_type: what another program wrote need not be what you expect.
    template <typename T>
    T get(std::size_t i) const
    {
        return convert(at(i), as<T>());
    }
    /// The first value of that name, in the same way.
    template <typename T>
    T get(std::string_view name) const
    {
        std::optional<std::size_t> i = position(name);
        if (!i)
            throw error(fault::no_value, "there is no value " + detail::quoted(name));
        return get<T>(*i);
    }
    /// The same, or none where there is no value of that name; throws fault::wrong_type all the same.
    template <typename T>
    std::optional<T> find(std::string_view name) const
    {
        std::optional<std::size_t> i = position(name);
        return i ? std::optional<T>(get<T>(*i)) : std::nullopt;
    }

private:
    struct value {
        std::string name;
        tipoDato type = ivrexa_tipoDato_desconocido;
        std::uint64_t number = 0;   // a number, a window, or the bits of a double
        const void *data = nullptr; // a text, a buffer, or an array of pointers to texts
        std::uint32_t size = 0;     // of a buffer or of an array
    };
    template <typename T>
    struct as {
    };

    static reader open(const std::string &service, std::uint32_t id, std::int16_t is_input)
    {
        detail::check_service(service);
        reader r;
        if (id == 0)
            return r;
        r.m_service = service;
        r.m_owned.reset(ivrexa_lee_datos(service.c_str(), id, is_input));
        if (r.m_owned == nullptr)
            throw error(fault::no_block,
                        "block " + std::to_string(id) + " of " + detail::quoted(service) + " has gone");
        r.look(r.m_owned.get());
        return r;
    }

    // The count, and each type, are the writer's word.
    void look(comdat *data)
    {
        std::uint32_t count = data != nullptr ? ivrexa_numero_valores(data) : 0;
        for (std::uint32_t i = 0; i < count; i++) {
            std::uint32_t type = ivrexa_tipoDato(data, i);
            if (type == ivrexa_tipoDato_desconocido || type > ivrexa_tipoDato_arr_cadenas_unicode)
                return;
            value v;
            v.type = static_cast<tipoDato>(type);
            v.name = ivrexa_nombre_valor(data, i);
            look_at(data, i, &v);
            m_values.push_back(std::move(v));
        }
    }

    static void look_at(comdat *data, std::uint32_t i, value *v);

    static bool is_text(tipoDato t) { return t == ivrexa_tipoDato_cadena_ansi || t == ivrexa_tipoDato_cadena_unicode; }

    const value &at(std::size_t i) const
    {
        if (i >= m_values.size())
            throw error(fault::no_value,
                        "there is no value " + std::to_string(i) + ": the data has " + std::to_string(m_values.size()));
        if (m_owned != nullptr)
            detail::check_alive(m_owned, m_service);
        return m_values[i];
    }

    static const value &expect(const value &v, tipoDato type)
    {
        if (v.type != type)
            throw error(fault::wrong_type, "the type of value " + detail::quoted(v.name) + " is " +
                                               detail::type_name(v.type) + ", not " + detail::type_name(type));
        return v;
    }

    template <typename T>
    static T convert(const value &, as<T>)
    {
        static_assert(detail::never<T>, "a value is read as uint8_t, uint16_t, uint32_t, unsigned long, double, "
                                        "ivrexa_hwnd, std::string, std::wstring, bytes, std::vector<std::string>, "
                                        "std::string_view or bytes_view");
    }
    static std::uint8_t convert(const value &v, as<std::uint8_t>)
    {
        return static_cast<std::uint8_t>(expect(v, ivrexa_tipoDato_byte).number);
    }
    static std::uint16_t convert(const value &v, as<std::uint16_t>)
    {
        return static_cast<std::uint16_t>(expect(v, ivrexa_tipoDato_ushort).number);
    }
    static std::uint32_t convert(const value &v, as<std::uint32_t>)
    {
        return static_cast<std::uint32_t>(expect(v, ivrexa_tipoDato_ulong).number);
    }
    static unsigned long convert(const value &v, as<unsigned long>) { return convert(v, as<std::uint32_t>()); }
    static double convert(const value &v, as<double>)
    {
        double d;
        std::memcpy(&d, &expect(v, ivrexa_tipoDato_double).number, sizeof d);
        return d;
    }
    static ivrexa_hwnd convert(const value &v, as<ivrexa_hwnd>)
    {
        return reinterpret_cast<ivrexa_hwnd>(static_cast<std::uintptr_t>(expect(v, ivrexa_tipoDato_hwnd).number));
    }
    static std::string_view convert(const value &v, as<std::string_view>)
    {
        const char *text = static_cast<const char *>(expect(v, ivrexa_tipoDato_cadena_ansi).data);
        return text != nullptr ? std::string_view(text) : std::string_view();
    }
    static std::string convert(const value &v, as<std::string>)
    {
        return std::string(convert(v, as<std::string_view>()));
    }
    static std::wstring convert(const value &v, as<std::wstring>)
    {
        return wide(static_cast<const char *>(expect(v, ivrexa_tipoDato_cadena_unicode).data));
    }
    template <typename T>
    static std::optional<T> convert(const value &v, as<std::optional<T>>)
    {
        static_assert(std::is_same_v<T, std::string> || std::is_same_v<T, std::wstring>,
                      "of the values only texts can be missing; one that may not be there is read by find()");
        T text = convert(v, as<T>());
        return v.data != nullptr ? std::optional<T>(std::move(text)) : std::nullopt;
    }
    static bytes_view convert(const value &v, as<bytes_view>)
    {
        const value &b = expect(v, ivrexa_tipoDato_buffer);
        return bytes_view(static_cast<const std::uint8_t *>(b.data), b.data != nullptr ? b.size : 0);
    }
    static bytes convert(const value &v, as<bytes>)
    {
        bytes_view view = convert(v, as<bytes_view>());
        return bytes(view.begin(), view.end());
    }
    static std::vector<std::string> convert(const value &v, as<std::vector<std::string>>)
    {
        const value &array = expect(v, ivrexa_tipoDato_arr_cadenas_ansi);
        const char *const *from = static_cast<const char *const *>(array.data);
        std::vector<std::string> all;
        for (std::uint32_t i = 0; from != nullptr && i < array.size; i++)
            all.emplace_back(from[i] != nullptr ? from[i] : ""); // null where it would lie outside the content
        return all;
    }

    // A wide text may lie at an odd address.
    static std::wstring wide(const char *from)
    {
        std::wstring text;
        wchar_t c = L'\0';
        for (; from != nullptr; from += sizeof c) {
            std::memcpy(&c, from, sizeof c);
            if (c == L'\0')
                break;
            text += c;
        }
        return text;
    }

    std::string m_service;
    detail::owned m_owned;
    std::vector<value> m_values;
};

inline void reader::look_at(comdat *data, std::uint32_t i, value *v)
{
    double d;
    switch (v->type) {
    case ivrexa_tipoDato_byte:
        v->number = ivrexa_dame_byte(data, i);
        break;
    case ivrexa_tipoDato_ushort:
        v->number = ivrexa_dame_ushort(data, i);
        break;
    case ivrexa_tipoDato_ulong:
        v->number = ivrexa_dame_ulong(data, i);
        break;
    case ivrexa_tipoDato_double:
        d = ivrexa_dame_double(data, i);
        std::memcpy(&v->number, &d, sizeof d);
        break;
    case ivrexa_tipoDato_hwnd:
        v->number = reinterpret_cast<std::uintptr_t>(ivrexa_dame_hwnd(data, i));
        break;
    case ivrexa_tipoDato_buffer:
        v->data = ivrexa_dame_buffer(data, i, &v->size);
        break;
    case ivrexa_tipoDato_cadena_ansi:
        v->data = ivrexa_dame_cadena_ansi(data, i);
        break;
    case ivrexa_tipoDato_cadena_unicode:
        v->data = ivrexa_dame_cadena_unicode(data, i);
        break;
    case ivrexa_tipoDato_arr_cadenas_ansi:
        v->data = ivrexa_dame_arr_cadenas_ansi(data, i, &v->size);
        break;
    default: // an array of wide texts does not come back
        break;
    }
}

// ---- Commands ----------------------------------------------------------------------------------------------------

/// What a command function answers. By session::offer_number() it may answer other numbers too.
enum class result : std::int32_t {
    none = ivrexa_resultado_NINGUNO,        ///< no answer
    ok = ivrexa_resultado_OK,               ///< carried out; the only one with which texts and data arrive
    cancelled = ivrexa_resultado_CANCELADO, ///< the server, or its user, did not want to
    error = ivrexa_resultado_ERROR          ///< the server refuses it, or it went wrong
};

/// What became of a command, as far as a client can know. The codes 0 and 3 are told apart by asking whether the
/// service is offered; that is asked behind the command, and things go on meanwhile.
enum class outcome {
    ok,           ///< carried out
    cancelled,    ///< the server said so
    server_error, ///< the server said ERROR and is still there
    /// 0 came, and the service counts as offered: the server answered 0, or it has a window and has died without ending
    /// its session. The command may have been carried out.
    no_answer,
    other,           ///< the server answered a number of its own: answer::code
    no_such_service, ///< nobody offers it; the command was not sent
    /// Somebody did, and does not any more. The command may have been carried out. That a server without a window has
    /// died shows after some 3 s; one that dies within a command may never be found dead, and then no outcome comes.
    server_gone,
    /// This program is not registered for the service: the command came after the end of the session, or C calls had
    /// filled the table. The command was not carried out.
    not_a_client,
    late,    ///< the deadline has passed with the command under way: it goes on, and its answer will be dropped
    not_sent ///< the deadline or the session's end has come while it waited to be sent: it never will be
};

/// The outcome's name, as it stands above.
inline const char *to_string(outcome o)
{
    constexpr const char *names[] = {"ok",    "cancelled",       "server_error", "no_answer",
                                     "other", "no_such_service", "server_gone",  "not_a_client",
                                     "late",  "not_sent"};
    return names[static_cast<std::size_t>(o)];
}

/// What a command brought. Moved, not copied. Read it, or let it go, before the session ends.
struct answer {
    outcome what = outcome::not_sent; ///< what became of the command
    /// The result as the C function gave it, an unsigned number: a server's -5 is 0xfffffffb here. 0 where the command
    /// was not sent, or is late.
    std::uint32_t code = 0;
    ivrexa::texts texts; ///< the server's texts; empty unless ok
    reader data;         ///< the output; no values unless ok

    /// Whether the command was carried out.
    explicit operator bool() const { return what == outcome::ok; }
};

/// A command to run, made by client::request(). Running it uses it up: it is moved, not copied.
class request {
public:
    /// Appends a value to the input, as writer::add().
    template <typename T>
    request &add(std::string_view name, T &&value)
    {
        m_input.add(name, std::forward<T>(value));
        return *this;
    }
    /// The input, for what add() does not offer.
    writer &input() { return m_input; }
    /// Sets the three texts. Throws fault::text where one does not fit.
    request &text(texts t)
    {
        t.check();
        m_texts = std::move(t);
        return *this;
    }
    /// Brings the server's window to the foreground when the command is sent.
    request &server_to_front()
    {
        m_window |= ivrexa_ventana_TRAE_SERVIDOR;
        return *this;
    }
    /// Gives the foreground back, once the command ends, to the window that was active before. For execute() on the
    /// window's thread only: on any other, and by execute_async(), there is no active window to give it back to.
    request &focus_back()
    {
        m_window |= ivrexa_ventana_DEVUELVE_FOCO;
        return *this;
    }

private:
    friend class client;
    request(std::uint32_t id, const std::string &service) : m_id(id), m_input(writer::input(service)) {}

    std::uint32_t m_id;
    writer m_input;
    texts m_texts;
    std::uint16_t m_window = 0;
};

// ---- Server ------------------------------------------------------------------------------------------------------

/// The command that a command function answers. It lives for that call, and so does what input() gives.
class command {
public:
    command(const command &) = delete;
    command &operator=(const command &) = delete;

    /// The service on which it was run.
    const std::string &service() const { return m_service; }
    /// Its number.
    std::uint32_t id() const { return m_id; }
    /// Its input; no values where the client sent none, or died meanwhile.
    const reader &input() const { return m_input; }
    /// The client's texts.
    const ivrexa::texts &texts() const { return m_texts; }
    /// The client's main window, as a number; 0 without one. Another program wrote it: do not trust it.
    std::uint64_t client_window() const { return m_context->hwnd_cliente; }
    /// The server's main window, or null. Another program may have written it.
    ivrexa_hwnd server_window() const { return m_context->hwnd_servidor; }

    /// Where the answer's values are written. They reach the client with result::ok only.
    writer &output()
    {
        if (!m_output)
            m_output = writer::output(m_service);
        return *m_output;
    }
    /// Sets the answer's texts; without, they are empty. Throws fault::text where one does not fit.
    void answer_texts(ivrexa::texts t)
    {
        t.check();
        m_answer = std::move(t);
    }

private:
    friend class session;
    command(const char *service, std::uint32_t id, comando *context) : m_service(service), m_id(id), m_context(context)
    {
    }

    // A client that runs a command out of its turn can leave none behind this call.
    bool fetch()
    {
        wchar_t first[max_short_text + 1], second[max_long_text + 1], third[max_long_text + 1];
        if (m_id == 0 ||
            ivrexa_get_datos_entrada_comando(m_service.c_str(), m_id, nullptr, first, second, third) != CIERTO)
            return false;
        m_texts = {first, second, third};
        m_input = reader::borrow(m_context->datos_entrada);
        return true;
    }

    // Answers also where there is nothing to say: what the command before it answered must not stay.
    bool send(std::int32_t code)
    {
        std::uint32_t block = m_output && code == ivrexa_resultado_OK ? m_output->store_in_channel() : 0;
        if (ivrexa_set_datos_salida_comando(m_service.c_str(), m_id, block, m_answer.first.c_str(),
                                            m_answer.second.c_str(), m_answer.third.c_str()) != CIERTO)
            return false;
        if (block != 0)
            m_context->datos_salida = m_output->release(); // the library keeps it until the next command
        return true;
    }

    std::string m_service;
    std::uint32_t m_id;
    comando *m_context;
    reader m_input;
    ivrexa::texts m_texts, m_answer;
    std::optional<writer> m_output;
};

/// What a server tells one client.
struct notification {
    std::string service;         ///< the service whose server tells it
    std::uint32_t client_id = 0; ///< this client's id for the service: document::client_id()
    std::uint32_t datum = 0;     ///< the server's number
    reader data;                 ///< what goes with it; no values without
};

/// Where a notification's function runs. The library tells a client twice: on a thread of its own, then on the
/// window's.
enum class where {
    library_thread, ///< the server waits until the function returns; run no command on that service in it
    /// The server waits until the data has been taken; then the function may touch windows. It runs when the window's
    /// messages are dispatched, and no more once the session's end has begun: see session.
    window_thread
};

namespace detail {
struct core;
struct client_state;
struct offered_service;
} // namespace detail

// ---- Session -----------------------------------------------------------------------------------------------------

/// This program's registration. There is one at a time, and all that is registered ends with it.
///
/// Its end waits for the commands and notifications that are under way on threads of the layer, the late ones among
/// them: the library cannot cancel a command. A command on a server that hangs holds it up until that server ends, and
/// one whose server without a window has died within it may hold it up for ever. It dispatches no messages meanwhile.
/// So do not end it
///   - inside a function of yours that the layer has called, nor while one waits for the thread that ends it,
///   - nor while a command is under way that needs this window's thread: one on a service that this session offers, or
///     on a server that calls this program back. Get its future first.
///
/// A notification whose server has been answered is dropped all the same where it waits for where::window_thread, or
/// comes, when the end begins: what its function works on may have gone by then. To miss none that has come, dispatch
/// what messages the window has, then end the session.
///
/// "One at a time" holds for each executable or DLL with this header in it; a program with several keeps to it itself.
class session {
public:
    /// A command function that answers one of the four results.
    using handler = std::function<result(command &)>;
    /// A command function that answers with numbers of its own, too; they reach the client as they are.
    using number_handler = std::function<std::int32_t(command &)>;
    /// Told of what escaped from a function of yours for that service: from a command function, whose client gets
    /// ERROR, or from a notification's. It runs on the thread on which that happened; what escapes from itself is
    /// dropped.
    using failure_handler = std::function<void(const std::string &service, std::exception_ptr)>;

    /// Begins it; nothing is registered before something is published or used.
    ///
    /// path     of the executable, 1 to 255 characters: argv[0] for one. The program's name on the desktop.
    /// window   commands arrive in its message loop, and it is subclassed; without one a thread for each service polls.
    ///          Begin the session on the thread of that window: nobody checks it.
    /// Throws fault::path, or fault::usage while there is another session.
    explicit session(std::string path, ivrexa_hwnd window = nullptr);
    /// Ends it: what waits in queues is never sent, what is under way is waited for, and all is withdrawn. Then the
    /// functions that it was given are destroyed, also those that hold a client.
    ~session();
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    /// The window that it was given, or null.
    ivrexa_hwnd window() const;

    /// Offers a service, until the session ends; publish() makes it known.
    ///
    /// service   1 to 63 characters without a backslash.
    /// f         the command function. It runs on the window's thread, or on the service's own. An exception that
    ///           escapes is result::error for the client.
    /// version   yours: clients ask for it by offered().
    /// Throws fault::service_name, too_many, or usage for one offered already, for an empty function, and in a session
    /// without a window that has published its services.
    void offer(const std::string &service, handler f, std::uint16_t version = 0);
    /// The same, with a function that answers with numbers of its own.
    void offer_number(const std::string &service, number_handler f, std::uint16_t version = 0);
    /// Sets the function that is told of failures; it may be empty.
    void on_failure(failure_handler f);
    /// Makes the services offered so far known, and begins to receive commands. With a window it may be called again
    /// for more of them; without, once for all. Throws fault::usage for a second time there, without any service, and
    /// inside itself: where it shows a box of the library, that dispatches messages.
    void publish();
    /// In a server without a window: waits until all its services have ended, without any time-out. One has ended when
    /// it was told to, and when its client died or was too young within a command. In another program, and before
    /// publish(), it waits for nothing.
    void wait_for_end() { ivrexa_espera_comando_terminar_servidor(); }

    /// Tells one client of a service of ours, and waits until it has handled that, or until the service ends: without
    /// any other time-out. Call it on a thread of its own, once publish() has returned or a command has come: while
    /// publish() is at it, it may be lost.
    ///
    /// client_id   the client's document::client_id(), which it has sent by a command.
    /// datum       yours.
    /// Throws fault::service_name, or usage for a service that is not published.
    void notify(const std::string &service, std::uint32_t client_id, std::uint32_t datum);
    /// The same with data, made by writer::output() for the service. It is stored here; keep it to yourself meanwhile.
    /// Without a window it waits for a command that is under way on the service before it stores; so that command's
    /// function must not wait for this thread. Nothing is stored and nobody is told once the session's end has begun.
    /// Throws also what writer::store() throws.
    void notify(writer &data, std::uint32_t client_id, std::uint32_t datum);

private:
    friend class client;

    static std::int32_t run(const char *service, std::uint32_t id, comando *context, void *offered);

    std::shared_ptr<detail::core> m_core;
};

// ---- Client ------------------------------------------------------------------------------------------------------

/// A service that this program uses. Copies are the same client, and so is another one for that service.
///
/// Commands of one service run one after the other, also those of several threads. With clients in other programs take
/// turns by a named mutex of yours, from execute() until the answer is there.
///
/// The first command of a program waits until 2.5 s have passed since the session's first registration, because a
/// server without a window may take a younger client for dead, and end. See server_has_window().
class client {
public:
    /// Registers this program as a client of the service. It need not be offered yet.
    /// Throws fault::service_name, or too_many for a seventeenth.
    client(session &s, const std::string &service);
    /// The same, to be notified too, once for each notification: `told` runs where `place` says. The session needs a
    /// window. Register when the server is there, and anew, in another session, when it has come back.
    /// Throws also fault::usage without a window, with an empty function, and where this program is a client already.
    client(session &s, const std::string &service, std::function<void(notification &)> told,
           where place = where::window_thread);

    /// The service.
    const std::string &service() const;
    /// Says that the server has a window, so that no command waits for the 2.5 s, nor end_server() for any command.
    /// Where that is not so, a command may end the server, and end_server() disturb the command under way.
    client &server_has_window();
    /// A command to run by this client. id: 100 and up, or fault::usage is thrown.
    ivrexa::request request(std::uint32_t id) const;

    /// Runs a command and waits for its end, on this thread and without a deadline; it uses the request up, unless it
    /// throws fault::usage for where it was called.
    ///
    /// With a server that has a window, messages sent to this thread's windows are delivered while the command runs,
    /// but not while it waits for its turn or for the 2.5 s. Throws fault::usage for a request that has been run or is
    /// another service's, and where a command on the service is under way on this thread, which would wait for itself.
    /// Throws fault::no_block for input that the system has no block for, then nothing was sent, and for output that
    /// has gone, then the command was carried out.
    answer execute(ivrexa::request &r);
    /// @copydoc execute
    answer execute(ivrexa::request &&r) { return execute(r); }
    /// Runs a command without input and texts.
    answer execute(std::uint32_t id) { return execute(request(id)); }

    /// Runs a command on a thread of the layer, behind those asked for before; it uses the request up. Inside the
    /// command function of the service itself do not wait for the future: the command waits for that function's end, so
    /// both would wait for ever.
    ///
    /// deadline   from now, 0 to a year. Once it has passed the future tells outcome::not_sent, and then the server
    ///            never gets the command, or outcome::late: then the library has it and goes on with it, and the server
    ///            may do all that it was asked for. Its answer is dropped, and the next command waits for its end.
    /// Returns a future that is always told something, at the session's end at the latest, and waits for nothing when
    /// it is destroyed. What execute() throws comes out of it, but for a request that has been run or is another
    /// service's.
    std::future<answer> execute_async(ivrexa::request &r, std::chrono::milliseconds deadline);
    /// @copydoc execute_async
    std::future<answer> execute_async(ivrexa::request &&r, std::chrono::milliseconds deadline)
    {
        return execute_async(r, deadline);
    }
    /// The same without a deadline.
    std::future<answer> execute_async(ivrexa::request &r);
    /// The same without a deadline.
    std::future<answer> execute_async(ivrexa::request &&r) { return execute_async(r); }

private:
    friend class document;
    using may_send = std::function<bool()>;

    void check(const ivrexa::request &r) const;
    std::future<answer> send_off(ivrexa::request &r, std::optional<std::chrono::steady_clock::time_point> deadline);
    static answer run(detail::core &c, detail::client_state &s, ivrexa::request &r, const may_send &may);
    static answer send(detail::core &c, detail::client_state &s, ivrexa::request &r, std::uint32_t input);
    static void work(detail::core &c, detail::client_state &s);
    static void notified(const char *service, std::uint32_t client_id, std::uint32_t datum);

    std::shared_ptr<detail::core> m_core;
    std::shared_ptr<detail::client_state> m_state;
};

/// A document that this program has open for a service, from its construction to its end; at most 32. No other program
/// hears of it: send client_id() to the server by a command, and the server notifies that id.
class document {
public:
    /// id: yours, not 0; an id that is open for another service has the same path.
    /// Throws fault::path for a NUL, usage for such an id or once the session has ended, and too_many.
    document(const client &c, std::wstring path, std::uint32_t id);
    /// Closes it, with the last document of that id; nothing once the session has ended.
    ~document();
    /// Moves it; the other one is none any more.
    document(document &&) noexcept = default;
    document(const document &) = delete;
    document &operator=(const document &) = delete;
    document &operator=(document &&) = delete;
    /// This client's id for the service, from 200 up: the same for every document.
    std::uint32_t client_id() const { return m_client_id; }
    /// The document's id.
    std::uint32_t id() const { return m_id; }

private:
    std::shared_ptr<detail::core> m_core;
    std::uint32_t m_id, m_client_id = 0;
};

// ---- How it is done: a command that somebody waits for by a future -------------------------------------------------

namespace detail {

using steady = std::chrono::steady_clock;

// A server without a window that looks at a client's heartbeat before it has begun may take the client for dead, and
// end.
inline constexpr std::chrono::milliseconds heartbeat_begins{2500};

inline answer only(outcome what)
{
    answer a;
    a.what = what;
    return a;
}

// Its future is told once: by whoever comes first of the worker, the deadline and the session's end.
class errand {
public:
    errand(request &&r, std::optional<steady::time_point> until) : what(std::move(r)), deadline(until) {}

    request what;
    const std::optional<steady::time_point> deadline;

    std::future<answer> future() { return m_promise.get_future(); }

    // Whether the command may go to the server. Never once its deadline has passed.
    bool send()
    {
        std::lock_guard<std::mutex> lock(m_guard);
        if (m_step != step::queued || (deadline && steady::now() >= *deadline))
            return false;
        m_step = step::sent;
        return true;
    }
    void tell(answer &&a)
    {
        std::lock_guard<std::mutex> lock(m_guard);
        if (m_step != step::told)
            m_promise.set_value(std::move(a));
        m_step = step::told;
    }
    void tell(std::exception_ptr e)
    {
        std::lock_guard<std::mutex> lock(m_guard);
        if (m_step != step::told)
            m_promise.set_exception(std::move(e));
        m_step = step::told;
    }
    void give_up()
    {
        std::lock_guard<std::mutex> lock(m_guard);
        if (m_step != step::told)
            m_promise.set_value(only(m_step == step::sent ? outcome::late : outcome::not_sent));
        m_step = step::told;
    }

private:
    enum class step { queued, sent, told };

    std::promise<answer> m_promise;
    std::mutex m_guard;
    step m_step = step::queued;
};

// Gives up errands whose deadline has come, on a thread that begins with the first of them.
class deadlines {
public:
    ~deadlines() { stop(); }
    // Nothing is watched any more.
    void stop()
    {
        {
            std::lock_guard<std::mutex> lock(m_guard);
            m_ends = true;
        }
        m_changed.notify_all();
        if (m_thread.joinable())
            m_thread.join();
        m_errands.clear();
    }
    void watch(const std::shared_ptr<errand> &e)
    {
        if (!e->deadline)
            return;
        std::lock_guard<std::mutex> lock(m_guard);
        if (!m_thread.joinable())
            m_thread = std::thread(&deadlines::live, this);
        m_errands.emplace(*e->deadline, e);
        m_changed.notify_all();
    }
    void forget(const std::shared_ptr<errand> &e)
    {
        if (!e->deadline)
            return;
        std::lock_guard<std::mutex> lock(m_guard);
        auto at = m_errands.equal_range(*e->deadline);
        for (auto i = at.first; i != at.second; ++i)
            if (i->second == e) {
                m_errands.erase(i);
                return;
            }
    }

private:
    void live()
    {
        std::unique_lock<std::mutex> lock(m_guard);
        while (!m_ends) {
            auto first = m_errands.begin();
            if (first == m_errands.end()) {
                m_changed.wait(lock);
            } else if (steady::time_point next = first->first; next > steady::now()) {
                m_changed.wait_until(lock, next);
            } else {
                first->second->give_up();
                m_errands.erase(first);
            }
        }
    }

    std::mutex m_guard;
    std::condition_variable m_changed;
    std::multimap<steady::time_point, std::shared_ptr<errand>> m_errands;
    bool m_ends = false;
    std::thread m_thread;
};

// ---- How it is done: what a session and its clients share ----------------------------------------------------------

// A service that this program offers.
struct offered_service {
    core &owner;
    const std::string name;
    const session::number_handler function;
    const std::uint16_t version;
    std::atomic<std::thread::id> serving{}; // the thread inside the function
    bool published = false;                 // under core::guard

    offered_service(core &c, const std::string &service, session::number_handler f, std::uint16_t number)
        : owner(c), name(service), function(std::move(f)), version(number)
    {
    }
};

// Marks a call of a command function.
class now_serving {
public:
    explicit now_serving(offered_service &o) : m_service(o), m_before(o.serving.exchange(std::this_thread::get_id())) {}
    ~now_serving() { m_service.serving = m_before; }
    now_serving(const now_serving &) = delete;
    now_serving &operator=(const now_serving &) = delete;

private:
    offered_service &m_service;
    std::thread::id m_before;
};

// What the clients of one service in this program share.
struct client_state {
    const std::string service;
    std::function<void(notification &)> told; // empty without notifications, and once the session has ended
    const where place;

    std::mutex turn;                       // one command at a time
    std::atomic<std::thread::id> holder{}; // whose turn it is
    bool open = true;                      // under turn
    bool seen = false;                     // a server was there the last time that we looked; under turn
    std::atomic<bool> has_window{false};   // the server, as the host says

    std::mutex guard; // of what follows
    std::condition_variable changed;
    std::deque<std::shared_ptr<errand>> errands;
    std::deque<notification> notifications; // taken, for the window's thread
    std::thread worker;
    bool ends = false;

    client_state(const std::string &name, std::function<void(notification &)> f, where runs)
        : service(name), told(std::move(f)), place(runs)
    {
    }

    // Each question leaves a handle open: while commands succeed nobody asks again.
    bool has_server()
    {
        seen = seen || is_offered(service);
        return seen;
    }
    bool still_has_server()
    {
        seen = is_offered(service);
        return seen;
    }
    // False where the session ends meanwhile.
    bool waits_until(steady::time_point t)
    {
        std::unique_lock<std::mutex> lock(guard);
        changed.wait_until(lock, t, [this] { return ends; });
        return !ends;
    }
    void end()
    {
        std::deque<std::shared_ptr<errand>> left;
        {
            std::lock_guard<std::mutex> lock(guard);
            ends = true;
            left.swap(errands);
        }
        changed.notify_all();
        for (const std::shared_ptr<errand> &e : left)
            e->give_up();
    }
    void wait_for_commands()
    {
        if (worker.joinable())
            worker.join();
        std::lock_guard<std::mutex> lock(turn);
        open = false;
    }
};

class my_turn {
public:
    explicit my_turn(client_state &s) : m_state(s)
    {
        if (s.holder.load() == std::this_thread::get_id())
            throw error(fault::usage, "a command on " + quoted(s.service) +
                                          " is under way on this thread: another one would "
                                          "wait for itself");
        s.turn.lock();
        s.holder = std::this_thread::get_id();
    }
    ~my_turn()
    {
        m_state.holder = std::thread::id();
        m_state.turn.unlock();
    }
    my_turn(const my_turn &) = delete;
    my_turn &operator=(const my_turn &) = delete;

private:
    client_state &m_state;
};

// Sets a flag for as long as it lives.
class meanwhile {
public:
    explicit meanwhile(bool &flag) : m_flag(flag) { m_flag = true; }
    ~meanwhile() { m_flag = false; }
    meanwhile(const meanwhile &) = delete;
    meanwhile &operator=(const meanwhile &) = delete;

private:
    bool &m_flag;
};

// What a session is. Clients and documents keep it, and find by it that the session has ended.
struct core {
    struct open_document {
        std::wstring path;
        std::size_t uses = 0;
    };

    const std::string path;
    const ivrexa_hwnd window;
    const std::thread::id thread = std::this_thread::get_id();
    deadlines clock;

    std::recursive_mutex registering; // one registration at a time; the library's boxes dispatch messages
    bool registered = false;          // and what follows, under registering
    bool has_published = false;
    bool publishing = false;
    bool ended = false;
    std::atomic<steady::time_point> since{}; // when the first registration was made
    std::map<std::uint32_t, open_document> documents;

    std::mutex guard; // of what follows; never held in a call of the library or of the host
    session::failure_handler failed;
    std::vector<std::unique_ptr<offered_service>> offered;
    std::map<std::string, std::shared_ptr<client_state>> clients;
    std::size_t being_told = 0; // notifications on the library's threads
    std::condition_variable quiet;
    bool ends = false;

    const std::uint32_t made_in = sessions_ended();

    core(std::string p, ivrexa_hwnd w) : path(std::move(p)), window(w) {}

    // That of the session there is.
    static std::atomic<core *> &current()
    {
        static std::atomic<core *> c{nullptr};
        return c;
    }

    void check_thread() const
    {
        if (window != nullptr && std::this_thread::get_id() != thread)
            throw error(fault::usage, "a session with a window registers on the thread that began it: the window's");
    }
    // Around each registration.
    void has_registered()
    {
        if (!registered)
            since = steady::now();
        registered = true;
    }
    // Under guard: the session's end destroys it.
    const offered_service *find_offered(const std::string &service) const
    {
        for (const std::unique_ptr<offered_service> &o : offered)
            if (o->name == service)
                return o.get();
        return nullptr;
    }
    bool offers(const std::string &service)
    {
        std::lock_guard<std::mutex> lock(guard);
        return find_offered(service) != nullptr;
    }
    std::shared_ptr<client_state> find_client(const std::string &service)
    {
        std::lock_guard<std::mutex> lock(guard);
        auto named = clients.find(service);
        return named != clients.end() ? named->second : nullptr;
    }
    // Whether this thread is inside the service's command function.
    bool is_serving(const std::string &service)
    {
        std::lock_guard<std::mutex> lock(guard);
        const offered_service *o = find_offered(service);
        return o != nullptr && o->serving.load() == std::this_thread::get_id();
    }
    // Whether commands on the service come to this program's window.
    bool serves_in_window(const std::string &service)
    {
        std::lock_guard<std::mutex> lock(guard);
        const offered_service *o = find_offered(service);
        return o != nullptr && o->published && window != nullptr;
    }
    // Without a window: a service that is announced again forgets the command that its thread is at.
    void check_publishes_still() const
    {
        if (window == nullptr && has_published)
            throw error(fault::usage, "without a window all services are published at once, and they have been");
    }
    // False where it has been published; it is so from here on: its function may notify as soon as the library knows
    // it.
    bool begins_publishing(offered_service &o)
    {
        std::lock_guard<std::mutex> lock(guard);
        return !std::exchange(o.published, true);
    }
    void check_published(const std::string &service)
    {
        check_service(service);
        std::lock_guard<std::mutex> lock(guard);
        const offered_service *o = find_offered(service);
        if (o == nullptr || !o->published)
            throw error(fault::usage,
                        "this program has not published " + quoted(service) + ": it notifies nobody there");
    }
    // Tells the host of the exception that is being handled.
    void fail(const char *service) noexcept
    {
        try {
            std::unique_lock<std::mutex> lock(guard);
            session::failure_handler f = failed;
            lock.unlock();
            if (f)
                f(service, std::current_exception());
        } catch (...) { // there is nobody else to tell
        }
    }
    // False once the session ends.
    bool begins_telling()
    {
        std::lock_guard<std::mutex> lock(guard);
        being_told += ends ? 0 : 1;
        return !ends;
    }
    void ends_telling()
    {
        std::lock_guard<std::mutex> lock(guard);
        being_told--;
        quiet.notify_all();
    }
    // The block of the data; none once the session ends, which waits for it: its end takes the heap away.
    std::optional<std::uint32_t> stores(writer &data)
    {
        if (!begins_telling())
            return std::nullopt;
        try {
            std::uint32_t id = data.store_in_channel();
            ends_telling();
            return id;
        } catch (...) {
            ends_telling();
            throw;
        }
    }
    std::map<std::string, std::shared_ptr<client_state>> all_clients()
    {
        std::lock_guard<std::mutex> lock(guard);
        return clients;
    }
    void end()
    {
        {
            std::unique_lock<std::mutex> lock(guard);
            ends = true;
            quiet.wait(lock, [this] { return being_told == 0; });
        }
        for (auto &named : all_clients())
            named.second->end();
        for (auto &named : all_clients())
            named.second->wait_for_commands();
        clock.stop();
        std::lock_guard<std::recursive_mutex> lock(registering);
        ended = true;
    }
    // Command data that nobody needs any more when the end has begun, which takes its memory away meanwhile.
    void leaves_to_end(writer &data) const
    {
        if (made_in == sessions_ended())
            data.release();
    }
    // Once the library calls nothing any more. The host's functions may hold clients, and these hold this and each
    // other; what else they hold may call the layer when it is destroyed.
    void forgets_functions()
    {
        session::failure_handler hook;
        std::vector<std::unique_ptr<offered_service>> services;
        std::map<std::string, std::shared_ptr<client_state>> used;
        {
            std::lock_guard<std::mutex> lock(guard);
            hook.swap(failed);
            services.swap(offered);
            used.swap(clients);
        }
        for (auto &named : used)
            named.second->told = nullptr;
    }
};

} // namespace detail

// ---- How it is done: the session -----------------------------------------------------------------------------------

inline session::session(std::string path, ivrexa_hwnd window)
{
    detail::check_path(path);
    m_core = std::make_shared<detail::core>(std::move(path), window);
    detail::core *none = nullptr;
    if (!detail::core::current().compare_exchange_strong(none, m_core.get()))
        throw error(fault::usage, "a program has one session at a time");
}

inline session::~session()
{
    m_core->end();
    ivrexa_cierra_sesion();
    detail::sessions_ended()++;
    detail::core::current() = nullptr;
    m_core->forgets_functions();
}

inline ivrexa_hwnd session::window() const
{
    return m_core->window;
}

inline void session::offer(const std::string &service, handler f, std::uint16_t version)
{
    number_handler number;
    if (f)
        number = [f = std::move(f)](command &c) { return static_cast<std::int32_t>(f(c)); };
    offer_number(service, std::move(number), version);
}

inline void session::offer_number(const std::string &service, number_handler f, std::uint16_t version)
{
    detail::check_service(service);
    if (!f)
        throw error(fault::usage, "service " + detail::quoted(service) + " needs a command function");
    detail::core &c = *m_core;
    c.check_thread();
    std::lock_guard<std::recursive_mutex> lock(c.registering);
    c.check_publishes_still();
    if (c.offers(service))
        throw error(fault::usage, "this program offers " + detail::quoted(service) + " already");
    if (c.offered.size() == max_services)
        throw error(fault::too_many,
                    "a program offers at most 16 services: " + detail::quoted(service) + " is one too many");
    auto made = std::make_unique<detail::offered_service>(c, service, std::move(f), version);
    std::lock_guard<std::mutex> guarded(c.guard);
    c.offered.push_back(std::move(made));
}

inline void session::on_failure(failure_handler f)
{
    std::lock_guard<std::mutex> lock(m_core->guard);
    m_core->failed = std::move(f);
}

// The library hears of a service only here: at the end of a session it reports one that was registered and never made
// known. Each is registered as a server's first: the function for a further one loses the command function in a program
// that began as a client.
inline void session::publish()
{
    detail::core &c = *m_core;
    c.check_thread();
    std::lock_guard<std::recursive_mutex> lock(c.registering);
    c.check_publishes_still();
    if (c.offered.empty())
        throw error(fault::usage, "there is nothing to publish: no service is offered");
    if (c.publishing)
        throw error(fault::usage, "publish() is under way on this thread: what is offered now is published by it");
    detail::meanwhile under_way(c.publishing);
    c.has_published = true;
    for (std::size_t i = 0; i < c.offered.size(); i++) { // a box of the library may let the host offer another one
        detail::offered_service &o = *c.offered[i];
        if (!c.begins_publishing(o))
            continue;
        ivrexa_registra_servidor(c.path.c_str(), c.window, o.name.c_str(), o.version, &o, run);
        c.has_registered();
    }
    ivrexa_terminado_registro();
}

inline void session::notify(const std::string &service, std::uint32_t client_id, std::uint32_t datum)
{
    m_core->check_published(service);
    ivrexa_notifica_a_cliente(service.c_str(), client_id, datum, 0);
}

// The session's end makes the call return, and takes the data with it.
inline void session::notify(writer &data, std::uint32_t client_id, std::uint32_t datum)
{
    std::shared_ptr<detail::core> c = m_core;
    c->check_published(data.service());
    if (std::optional<std::uint32_t> id = c->stores(data))
        ivrexa_notifica_a_cliente(data.service().c_str(), client_id, datum, *id);
    std::lock_guard<std::mutex> lock(c->guard);
    if (c->ends)
        data.release();
}

// No exception leaves it: in a server with a window that would be the host's end.
inline std::int32_t session::run(const char *service, std::uint32_t id, comando *context, void *offered)
{
    detail::offered_service &o = *static_cast<detail::offered_service *>(offered);
    detail::now_serving serving(o);
    try {
        command c(service, id, context);
        if (!c.fetch())
            return ivrexa_resultado_ERROR;
        std::int32_t code = o.function(c);
        return c.send(code) ? code : ivrexa_resultado_ERROR;
    } catch (...) {
        o.owner.fail(service);
        return ivrexa_resultado_ERROR;
    }
}

// ---- How it is done: the client ------------------------------------------------------------------------------------

namespace detail {

// A client of this program for the service, registered if there was none.
inline std::shared_ptr<client_state> registers_client(core &c, const std::shared_ptr<client_state> &made,
                                                      ivrexa_funcion_notificacion notified)
{
    c.check_thread();
    std::lock_guard<std::recursive_mutex> lock(c.registering);
    {
        std::lock_guard<std::mutex> guarded(c.guard);
        auto named = c.clients.find(made->service);
        if (named != c.clients.end() && !made->told)
            return named->second;
        if (named != c.clients.end())
            throw error(fault::usage,
                        "this program is a client of " + quoted(made->service) + " already: that stays as it is");
        if (c.clients.size() == max_services)
            throw error(fault::too_many,
                        "a program uses at most 16 services: " + quoted(made->service) + " is one too many");
        c.clients[made->service] = made;
    }
    if (made->told)
        ivrexa_registra_cliente_notificaciones_servicio(c.path.c_str(), c.window, made->service.c_str(), notified);
    else
        ivrexa_registra_cliente_de_servicio(c.path.c_str(), c.window, made->service.c_str());
    c.has_registered();
    return made;
}

// What the code of a command means. The number of the service's message is 0 where this program is no client of it, but
// also where it offers the service itself without a window.
inline outcome meaning(core &c, client_state &s, std::uint32_t code)
{
    switch (code) {
    case ivrexa_resultado_OK:
        return outcome::ok;
    case ivrexa_resultado_CANCELADO:
        return outcome::cancelled;
    case ivrexa_resultado_NINGUNO:
        return s.still_has_server() ? outcome::no_answer : outcome::server_gone;
    case ivrexa_resultado_ERROR:
        if (ivrexa_dame_id_MSG_servicio(s.service.c_str()) == 0 && (c.window != nullptr || !c.offers(s.service)))
            return outcome::not_a_client;
        return s.still_has_server() ? outcome::server_error : outcome::server_gone;
    default:
        return outcome::other;
    }
}

inline notification takes_notification(const char *service, std::uint32_t client_id, std::uint32_t datum)
{
    notification n{service, client_id, datum, {}};
    n.data = reader::open_output(n.service, ivrexa_obtener_id_datos_notificacion(service, client_id, datum));
    return n;
}

inline void notified_on_library_thread(client_state &s, notification &&n)
{
    if (s.place == where::library_thread) {
        s.told(n);
        return;
    }
    std::lock_guard<std::mutex> lock(s.guard);
    s.notifications.push_back(std::move(n));
}

// All there are: the message of one may have found no room.
inline void notified_on_window_thread(client_state &s)
{
    for (;;) {
        std::unique_lock<std::mutex> lock(s.guard);
        if (s.notifications.empty())
            return;
        notification n = std::move(s.notifications.front());
        s.notifications.pop_front();
        lock.unlock();
        s.told(n);
    }
}

} // namespace detail

inline client::client(session &s, const std::string &service) : m_core(s.m_core)
{
    detail::check_service(service);
    auto made = std::make_shared<detail::client_state>(service, nullptr, where::library_thread);
    m_state = detail::registers_client(*m_core, made, nullptr);
}

inline client::client(session &s, const std::string &service, std::function<void(notification &)> told, where place)
    : m_core(s.m_core)
{
    detail::check_service(service);
    if (!told)
        throw error(fault::usage, "a client that is notified needs a function");
    if (m_core->window == nullptr)
        throw error(fault::usage, "a client is notified through its window, and this session has none");
    auto made = std::make_shared<detail::client_state>(service, std::move(told), place);
    m_state = detail::registers_client(*m_core, made, notified);
}

inline const std::string &client::service() const
{
    return m_state->service;
}

inline client &client::server_has_window()
{
    m_state->has_window = true;
    return *this;
}

inline ivrexa::request client::request(std::uint32_t id) const
{
    if (id < ivrexa_comando_PRIMERO_PROPIO)
        throw error(fault::usage, "command " + std::to_string(id) + " is the library's: yours are 100 and up");
    return ivrexa::request(id, service());
}

inline void client::check(const ivrexa::request &r) const
{
    if (r.m_input.get() == nullptr)
        throw error(fault::usage, "a request for " + detail::quoted(service()) + " is run once");
    if (r.m_input.service() != service())
        throw error(fault::usage, "a request for " + detail::quoted(r.m_input.service()) + " is not one for " +
                                      detail::quoted(service()));
}

inline answer client::execute(ivrexa::request &r)
{
    check(r);
    return run(*m_core, *m_state, r, [] { return true; });
}

inline std::future<answer> client::execute_async(ivrexa::request &r, std::chrono::milliseconds deadline)
{
    constexpr std::chrono::milliseconds none{0}, year = std::chrono::hours(365 * 24);
    return send_off(r, detail::steady::now() + std::clamp(deadline, none, year)); // more is no point in time
}

inline std::future<answer> client::execute_async(ivrexa::request &r)
{
    return send_off(r, std::nullopt);
}

inline std::future<answer> client::send_off(ivrexa::request &r, std::optional<detail::steady::time_point> deadline)
{
    check(r);
    auto e = std::make_shared<detail::errand>(std::move(r), deadline);
    std::future<answer> told = e->future();
    detail::client_state &s = *m_state;
    std::lock_guard<std::mutex> lock(s.guard);
    if (s.ends) {
        m_core->leaves_to_end(e->what.m_input);
        e->tell(detail::only(outcome::not_a_client));
        return told;
    }
    if (!s.worker.joinable())
        s.worker = std::thread(work, std::ref(*m_core), std::ref(s));
    m_core->clock.watch(e);
    s.errands.push_back(std::move(e)); // the last that may throw: what has thrown is not sent
    s.changed.notify_all();
    return told;
}

// The thread of a service's errands.
inline void client::work(detail::core &c, detail::client_state &s)
{
    for (;;) {
        std::unique_lock<std::mutex> lock(s.guard);
        s.changed.wait(lock, [&s] { return s.ends || !s.errands.empty(); });
        if (s.errands.empty())
            return;
        std::shared_ptr<detail::errand> e = std::move(s.errands.front());
        s.errands.pop_front();
        lock.unlock();
        try {
            e->tell(run(c, s, e->what, [&e] { return e->send(); }));
        } catch (...) {
            e->tell(std::current_exception());
        }
        c.clock.forget(e);
    }
}

inline answer client::run(detail::core &c, detail::client_state &s, ivrexa::request &r, const may_send &may)
{
    if (c.is_serving(s.service)) // it would wait for itself for ever
        throw error(fault::usage, "the command function of " + detail::quoted(s.service) + " runs no command on it");
    detail::my_turn turn(s);
    ivrexa::request mine = std::move(r); // goes before the turn does: the session's end waits no longer
    if (!s.open) {
        c.leaves_to_end(mine.m_input);
        return detail::only(outcome::not_a_client);
    }
    if (!s.has_server())
        return detail::only(outcome::no_such_service);
    if (!s.has_window && !s.waits_until(c.since.load() + detail::heartbeat_begins))
        return detail::only(outcome::not_sent);
    const std::uint32_t input = mine.m_input.store_in_channel(); // it may wait for a command of somebody else
    if (!may())
        return detail::only(outcome::not_sent);
    return send(c, s, mine, input);
}

inline answer client::send(detail::core &c, detail::client_state &s, ivrexa::request &r, std::uint32_t input)
{
    wchar_t first[max_short_text + 1], second[max_long_text + 1], third[max_long_text + 1];
    std::uint32_t output = 0;
    answer a;
    a.code = ivrexa_ejecuta_comando(s.service.c_str(), r.m_id, r.m_window, input, r.m_texts.first.c_str(),
                                    r.m_texts.second.c_str(), r.m_texts.third.c_str(), &output, first, second, third);
    a.what = detail::meaning(c, s, a.code);
    if (a.what != outcome::ok)
        return a;
    a.texts = {first, second, third};
    a.data = reader::open_output(s.service, output);
    return a;
}

// The library calls it twice for each notification. The call on its own thread takes the data and answers the server;
// the one on the window's thread brings a number of no use. No exception leaves it.
inline void client::notified(const char *service, std::uint32_t client_id, std::uint32_t datum)
{
    detail::core *c = detail::core::current();
    if (c == nullptr)
        return;
    const bool on_window_thread = std::this_thread::get_id() == c->thread;
    const bool counted = !on_window_thread && c->begins_telling();
    try {
        std::shared_ptr<detail::client_state> s = c->find_client(service);
        if (s != nullptr && counted)
            detail::notified_on_library_thread(*s, detail::takes_notification(service, client_id, datum));
        else if (s != nullptr && on_window_thread && s->place == where::window_thread)
            detail::notified_on_window_thread(*s);
    } catch (...) {
        c->fail(service);
    }
    if (!on_window_thread)
        ivrexa_procesada_notificacion(service);
    if (counted)
        c->ends_telling();
}

// ---- How it is done: documents -------------------------------------------------------------------------------------

inline document::document(const client &c, std::wstring path, std::uint32_t id) : m_core(c.m_core), m_id(id)
{
    if (id == 0)
        throw error(fault::usage, "a document's id is not 0");
    if (detail::has_nul(std::wstring_view(path)))
        throw error(fault::path, "a document's path holds no NUL");
    m_core->check_thread();
    std::lock_guard<std::recursive_mutex> lock(m_core->registering);
    if (m_core->ended)
        throw error(fault::usage, "the session of this client has ended");
    auto known = m_core->documents.find(id);
    if (known == m_core->documents.end() && m_core->documents.size() == max_documents)
        throw error(fault::too_many, "a program has at most 32 documents open");
    if (known != m_core->documents.end() && known->second.path != path)
        throw error(fault::usage, "document " + std::to_string(id) + " is open under another path");
    m_client_id = ivrexa_abierto_documento_de_cliente(c.service().c_str(), path.c_str(), id);
    if (m_client_id == 0)
        throw error(fault::usage, detail::quoted(c.service()) + " gives this program no id");
    detail::core::open_document &open = m_core->documents[id];
    open.path = std::move(path);
    open.uses++;
}

inline document::~document()
{
    if (m_core == nullptr)
        return;
    std::lock_guard<std::recursive_mutex> lock(m_core->registering);
    auto open = m_core->documents.find(m_id);
    if (m_core->ended || --open->second.uses != 0)
        return;
    ivrexa_cerrado_documento_de_cliente(open->second.path.c_str(), m_id);
    m_core->documents.erase(open);
}

// ---- Questions ---------------------------------------------------------------------------------------------------

/// The version of a service that somebody offers; none where nobody does. A server that has died counts until a client
/// has found it dead, or until nobody uses the service. Each question for a service that there is leaves a handle open.
/// Throws fault::service_name.
inline std::optional<std::uint16_t> offered(const std::string &service)
{
    detail::check_service(service);
    std::uint16_t version = 0;
    return detail::is_offered(service, &version) ? std::optional<std::uint16_t>(version) : std::nullopt;
}

/// A service that was found by the beginning of its name.
struct found_service {
    std::string name;          ///< the whole name
    std::uint16_t version = 0; ///< the version that its server gave
};

/// The first service of the desktop whose name begins so, "" being the first of all; none without one, and where that
/// first one is not offered any more. Throws fault::service_name for what no name can begin with.
inline std::optional<found_service> find_service(const std::string &prefix)
{
    if (!prefix.empty())
        detail::check_service(prefix);
    char name[max_service_name + 1] = "";
    found_service found;
    if (ivrexa_hay_servicio_registrado_empiece_por(prefix.c_str(), name, &found.version) != CIERTO)
        return std::nullopt;
    found.name = name;
    return found;
}

/// Asks the server of a service to end. One with a window ends when it comes to it, and this does not wait for that;
/// inside its command function it may so end itself: its loop ends behind the command. One without a window has ended
/// when this returns, and hears it only from a program that is its client.
///
/// Asked behind the command on the service that is under way in this program, if there is one: as long as that takes,
/// this waits and dispatches no messages. Only where the server is this program's own with a window, or one of which
/// client::server_has_window() has been said, it is asked at once.
///
/// Throws fault::service_name, or usage where it would wait for itself: with a command on the service under way on this
/// thread, and inside the service's own command function without a window.
inline void end_server(const std::string &service)
{
    detail::check_service(service);
    detail::core *c = detail::core::current();
    if (c != nullptr && c->window == nullptr && c->is_serving(service))
        throw error(fault::usage, "the command function of " + detail::quoted(service) + " cannot end it");
    std::shared_ptr<detail::client_state> s = c != nullptr ? c->find_client(service) : nullptr;
    std::optional<detail::my_turn> turn;
    if (s != nullptr && !s->has_window && !c->serves_in_window(service)) // to a window a message is posted, to no other
        turn.emplace(*s);
    ivrexa_terminar_servidor(service.c_str());
}

} // namespace ivrexa

#endif // IVREXA_HPP
