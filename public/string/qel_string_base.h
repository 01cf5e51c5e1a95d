/// CQelCharArray<N>: text of at most N - 1 characters inside exactly N bytes. Never allocates, cuts silently.
/// CQELOptional<T>: a non-owning reference that may be empty.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

template <std::size_t N>
class CQelCharArray {
public:
    using RawCharacterSequence = char[N];
    using CQelArray = RawCharacterSequence&;

    CQelCharArray() { Clear(); }

    template <std::size_t M>
    CQelCharArray(const char (&lit)[M]) {  // NOLINT(google-explicit-constructor): a literal is a text
        _MyCopy(lit);
    }

    /// The empty text; what stands behind its end is left alone.
    void Clear() { m_value[0] = '\0'; }

    std::size_t Length() const { return strnlen(m_value, N); }  ///< characters of the text
    std::size_t Size() const { return N; }                      ///< bytes of the array

    /// The text itself, which changes with it.
    const char* data() const { return m_value; }
    operator const char*() const { return m_value; }  // NOLINT(google-explicit-constructor)

    /// Null leaves the text as it is; a longer text is cut; the rest of the array is zero-filled.
    CQelCharArray& UnSafeCopyFrom(const char* s) {
        if (s != nullptr) {
            const std::size_t length = strnlen(s, N - 1);
            std::memmove(m_value, s, length);
            std::memset(m_value + length, 0, N - length);
        }
        return *this;
    }

    /// A literal that fits, the whole of it; an array of characters is terminated at its last place.
    template <std::size_t M>
    CQelCharArray& _MyCopy(const char (&lit)[M]) {
        static_assert(M <= N, "the literal must fit");
        if (lit[0] == '\0') {
            Clear();
        } else {
            std::memcpy(m_value, lit, M);
            m_value[M - 1] = '\0';
        }
        return *this;
    }

    /// The same.
    template <std::size_t M>
    CQelCharArray& CopyFrom(const char (&lit)[M]) {
        return _MyCopy(lit);
    }

    /// The text of `src`; a longer one is cut.
    template <std::size_t M>
    CQelCharArray& CopyFrom(const CQelCharArray<M>& src) {
        return CopyFrom(src, 0, M);
    }

    /// At most `count` characters of it from index `pos` on; `src` may be this text.
    template <std::size_t M>
    CQelCharArray& CopyFrom(const CQelCharArray<M>& src, std::size_t pos, std::size_t count) {
        const std::size_t first = std::min(pos, src.Length());
        const std::size_t n = std::min({count, N - 1, src.Length() - first});
        std::memmove(m_value, src.data() + first, n);
        m_value[n] = '\0';
        return *this;
    }

    /// Behind the text; what does not fit is cut.
    CQelCharArray& Append(char c) { return AppendText(&c, 1); }

    /// At most `maxlen` characters.
    template <std::size_t M>
    CQelCharArray& Append(const char (&lit)[M], std::size_t maxlen = M) {
        return AppendText(lit, strnlen(lit, std::min(maxlen, M)));
    }

    /// Writes the decimal digits of `v` from index `pos` on. When they do not fit, the high digits are lost.
    CQelCharArray& ParseInt(uint64_t v, std::size_t pos) {
        const std::size_t first = DigitsAtEnd(v, pos);
        if (pos < N) std::memmove(m_value + pos, m_value + first, N - first);
        return *this;
    }

    /// Writes the digits against the end of the array, never below `pos`; returns the index before the first digit.
    int _ParseIntRight(uint64_t v, std::size_t pos) { return static_cast<int>(DigitsAtEnd(v, pos)) - 1; }

    /// The number in decimal, behind the text. When it does not fit, the high digits are lost.
    CQelCharArray& Append(uint64_t v) { return ParseInt(v, Length()); }
    CQelCharArray& Append(int64_t v) {
        if (v >= 0) return Append(static_cast<uint64_t>(v));
        return Append('-').Append(0U - static_cast<uint64_t>(v));
    }
    CQelCharArray& Append(int32_t v) { return Append(int64_t{v}); }
    CQelCharArray& Append(uint32_t v) { return ParseInt(v, Length()); }
    CQelCharArray& Append(uint16_t v) { return ParseInt(v, Length()); }
    CQelCharArray& Append(int16_t v) { return Append(int32_t{v}); }
    CQelCharArray& Append(uint8_t v) { return ParseInt(v, Length()); }
    CQelCharArray& Append(int8_t v) { return Append(int32_t{v}); }

    /// Fixed notation with `precision` digits behind the point, at most 17. What does not fit is cut at the end.
    CQelCharArray& Append(double v, int precision) {
        char digits[352];  // the longest double in fixed notation
        std::snprintf(digits, sizeof digits, "%.*f", std::min(std::max(precision, 0), 17), v);
        return Append(digits);
    }

    /// The number alone, in place of the text that was there.
    CQelCharArray& ParseFrom(uint32_t v) { return ParseInt(v, 0); }
    CQelCharArray& ParseFrom(uint64_t v) { return ParseInt(v, 0); }
    CQelCharArray& ParseFrom(int32_t v) {
        Clear();
        return Append(v);
    }
    CQelCharArray& ParseFrom(int64_t v) {
        Clear();
        return Append(v);
    }

    /// The number against the end of the array, `fill` in front of it.
    CQelCharArray& FillCharParseFrom(uint32_t v, char fill) {
        std::memset(m_value, fill, DigitsAtEnd(v, 0));
        return *this;
    }
    CQelCharArray& FillCharParseFrom(int32_t v, char fill) {
        FillCharParseFrom(static_cast<uint32_t>(std::abs(int64_t{v})), fill);
        if (v < 0) m_value[0] = '-';
        return *this;
    }

    /// Decimal digits of `v`, in place of the text that was there.
    CQelCharArray& _StupidItoA(uint32_t v) { return ParseFrom(v); }

    /// The empty text.
    static CQelCharArray GetDefaultValue() { return CQelCharArray(); }
    static constexpr std::size_t SIZE = N;

    /// Whether there is no character.
    bool IsEmpty() const { return m_value[0] == '\0'; }

    /// The array, to be written by others: N bytes.
    char* Data() { return m_value; }

    /// First or last place of `c` in the text, null where there is none.
    const char* StrChr(char c) const { return static_cast<const char*>(std::memchr(m_value, c, Length())); }
    const char* StrRChr(char c) const { return static_cast<const char*>(memrchr(m_value, c, Length())); }

    /// Writes one character inside the array; the last place stays the terminator's.
    void At(std::size_t index, char c) {
        if (index < N - 1) m_value[index] = c;
    }
    /// Fills from `pos` to the end with `c`; the last place stays the terminator's.
    void ClearBufByPos(std::size_t pos, char c) {
        const std::size_t first = std::min(pos, N);
        std::memset(m_value + first, c, N - first);
        m_value[N - 1] = '\0';
    }

    /// The first character; the terminator of an empty text.
    char ToChar() const { return m_value[0]; }

    /// The decimal number that the text begins with, behind blanks; 0 where there is none. Cut to the type's low bits.
    int32_t ToInt32() const { return static_cast<int32_t>(ToInt64()); }
    /// The number that begins at index `pos`; 0 beyond the text.
    int32_t ToInt32(const std::size_t& pos) const {
        CQelCharArray<N + 1> tail;
        tail.CopyFrom(*this, pos, N);
        return tail.ToInt32();
    }
    uint16_t ToWord() const { return static_cast<uint16_t>(ToInt64()); }  ///< the same in 16 bits

    /// The same of a number with a point or an exponent.
    double ToDouble() const { return std::strtod(Terminated().data(), nullptr); }

    /// Without the blanks, tabs and line ends in front, at the end, on either side.
    CQelCharArray& TrimHeader() { return CopyFrom(*this, View().find_first_not_of(BLANKS), N); }
    CQelCharArray& TrimTail() {
        m_value[View().substr(0, N - 1).find_last_not_of(BLANKS) + 1] = '\0';  // none: the index wraps round to 0
        return *this;
    }
    CQelCharArray& Trim() { return TrimTail().TrimHeader(); }

    /// Of the letters of ASCII.
    CQelCharArray& StrToLowercase() { return Map('A', 'Z', 'a' - 'A'); }
    CQelCharArray& StrToUppercase() { return Map('a', 'z', 'A' - 'a'); }

    template <std::size_t M>
    bool operator==(const CQelCharArray<M>& other) const {
        return View() == std::string_view(other.data(), other.Length());
    }

    /// 0 when equal. The sign is the reverse of strcmp's: 1 when `other` is the greater one.
    template <std::size_t M>
    int Comp(const CQelCharArray<M>& other) const {
        for (std::size_t i = 0; i < M; ++i) {
            const signed char mine = i < N ? m_value[i] : '\0';  // a view may be full up to its last byte
            const signed char theirs = other.data()[i];
            const int order = (theirs > mine) - (theirs < mine);
            if (order != 0 || theirs == '\0') return order;
        }
        return 0;
    }

    /// The same with a literal.
    template <std::size_t M>
    int Comp(const char (&lit)[M]) const {
        return Comp(BuffCast(lit));
    }

    /// Appends the pieces between the separators to `out`. A trailing separator makes no empty last piece.
    template <std::size_t M>
    void SplitByChar(std::vector<CQelCharArray<M>>& out, char sep) const {
        const CQelCharArray copy = *this;
        const std::string_view text = copy.View();
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = std::min(text.find(sep, start), text.size());
            out.emplace_back().CopyFrom(copy, start, end - start);
            start = end + 1;
        }
    }

    /// An array of characters seen as a text, terminated or not.
    template <std::size_t M>
    static CQelCharArray<M>& BuffCast(char (&buf)[M]) {
        return reinterpret_cast<CQelCharArray<M>&>(buf);
    }

    /// The same.
    template <std::size_t M>
    static const CQelCharArray<M>& BuffCast(const char (&buf)[M]) {
        return reinterpret_cast<const CQelCharArray<M>&>(buf);
    }

    /// As ToInt32(), in 64 bits; what lies beyond them is the nearest one.
    int64_t ToInt64() const { return std::strtoll(Terminated().data(), nullptr, 10); }

private:
    static constexpr const char* BLANKS = " \t\r\n";

    std::string_view View() const { return {m_value, Length()}; }

    CQelCharArray& AppendText(const char* text, std::size_t size) {
        const std::size_t length = Length();
        if (length < N) {
            const std::size_t n = std::min(size, N - 1 - length);
            std::memcpy(m_value + length, text, n);
            m_value[length + n] = '\0';
        }
        return *this;
    }

    /// Writes the digits of `v` against the end of the array, never below `pos`; returns the index of the first one.
    std::size_t DigitsAtEnd(uint64_t v, std::size_t pos) {
        std::size_t first = N - 1;
        m_value[first] = '\0';
        while (first > pos) {
            m_value[--first] = static_cast<char>('0' + v % 10);
            v /= 10;
            if (v == 0) break;
        }
        return first;
    }

    CQelCharArray& Map(char first, char last, int offset) {
        std::for_each(m_value, m_value + Length(), [=](char& c) {
            if (c >= first && c <= last) c = static_cast<char>(c + offset);
        });
        return *this;
    }

    // A terminated copy: the array itself may be a view over a text without a terminator.
    CQelCharArray<N + 1> Terminated() const {
        CQelCharArray<N + 1> copy;
        copy.CopyFrom(*this, 0, N);
        return copy;
    }

    RawCharacterSequence m_value;
};

template <typename T>
class CQELOptional {
public:
    CQELOptional() = default;
    CQELOptional(T& object) : m_pointer(&object) {}  // NOLINT(google-explicit-constructor): an object is a reference

    /// Sets `valid`; the result must not be used when it is false.
    T& GetData(bool& valid) const {
        valid = m_pointer != nullptr;
        // A reference to nothing must not be made: an empty holder refers to bytes that nobody uses.
        alignas(T) static unsigned char nothing[sizeof(T)];
        return valid ? *m_pointer : reinterpret_cast<T&>(nothing);
    }

    /// Whether it refers to nothing.
    bool IsInvalid() const { return m_pointer == nullptr; }
    /// Whether both refer to the same object, or both to none.
    bool operator==(CQELOptional<T> other) const { return m_pointer == other.m_pointer; }

private:
    T* m_pointer = nullptr;
};
