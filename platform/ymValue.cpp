#include <YumoClientSdk/ymValue.h>

struct ymValue::Storage {
    Type type = Type::null;
    bool boolean = false;
    int64_t integer = 0;
    double real = 0;
    std::string text;
    std::vector<ymValue> elements;
    Members members;
};

namespace {

std::shared_ptr<const ymValue::Storage> nullStorage()
{
    static const auto *shared = new std::shared_ptr<const ymValue::Storage>(std::make_shared<ymValue::Storage>());
    return *shared;
}

template <typename Fill>
std::shared_ptr<const ymValue::Storage> made(ymValue::Type type, Fill fill)
{
    auto storage = std::make_shared<ymValue::Storage>();
    storage->type = type;
    fill(*storage);
    return storage;
}

}  // namespace

ymValue::ymValue() : _storage(nullStorage()) {}
ymValue::ymValue(std::nullptr_t) : ymValue() {}
ymValue::ymValue(std::shared_ptr<const Storage> storage) : _storage(std::move(storage)) {}
ymValue::ymValue(bool value) : _storage(made(Type::boolean, [&](Storage &s) { s.boolean = value; })) {}
ymValue::ymValue(int value) : ymValue(static_cast<long long>(value)) {}
ymValue::ymValue(unsigned value) : ymValue(static_cast<long long>(value)) {}
ymValue::ymValue(long value) : ymValue(static_cast<long long>(value)) {}
ymValue::ymValue(unsigned long value) : ymValue(static_cast<unsigned long long>(value)) {}
ymValue::ymValue(long long value) : _storage(made(Type::integer, [&](Storage &s) { s.integer = value; })) {}
ymValue::ymValue(unsigned long long value) : ymValue(static_cast<long long>(value)) {}
ymValue::ymValue(double value) : _storage(made(Type::real, [&](Storage &s) { s.real = value; })) {}
ymValue::ymValue(const char *text) : ymValue(text ? ymValue(std::string(text)) : ymValue()) {}
ymValue::ymValue(std::string text) : _storage(made(Type::text, [&](Storage &s) { s.text = std::move(text); })) {}

ymValue ymValue::array(std::vector<ymValue> elements)
{
    return ymValue(made(Type::array, [&](Storage &s) { s.elements = std::move(elements); }));
}

ymValue ymValue::dictionary(Members members)
{
    return ymValue(made(Type::dictionary, [&](Storage &s) { s.members = std::move(members); }));
}

ymValue::Type ymValue::type() const { return _storage->type; }
bool ymValue::isNull() const { return _storage->type == Type::null; }
bool ymValue::isText() const { return _storage->type == Type::text; }
bool ymValue::isNumber() const { return _storage->type == Type::integer || _storage->type == Type::real; }
bool ymValue::booleanValue() const { return _storage->type == Type::boolean && _storage->boolean; }

int64_t ymValue::integerValue() const
{
    switch (_storage->type) {
    case Type::integer:
        return _storage->integer;
    case Type::real:
        // Cut towards zero, held within the range.
        if (!(_storage->real == _storage->real))
            return 0;
        if (_storage->real >= 9.2233720368547758e18)
            return INT64_MAX;
        if (_storage->real <= -9.2233720368547758e18)
            return INT64_MIN;
        return static_cast<int64_t>(_storage->real);
    case Type::boolean:
        return _storage->boolean ? 1 : 0;
    default:
        return 0;
    }
}

double ymValue::realValue() const
{
    if (_storage->type == Type::real)
        return _storage->real;
    if (_storage->type == Type::integer)
        return static_cast<double>(_storage->integer);
    return 0.0;
}

const std::string &ymValue::text() const { return _storage->text; }
const std::vector<ymValue> &ymValue::elements() const { return _storage->elements; }
const ymValue::Members &ymValue::members() const { return _storage->members; }

const ymValue *ymValue::find(const std::string &key) const
{
    for (const auto &[name, value] : _storage->members)
        if (name == key)
            return &value;
    return nullptr;
}

bool ymValue::operator==(const ymValue &other) const
{
    const Storage &a = *_storage;
    const Storage &b = *other._storage;
    if (a.type != b.type)
        return false;
    switch (a.type) {
    case Type::null:
        return true;
    case Type::boolean:
        return a.boolean == b.boolean;
    case Type::integer:
        return a.integer == b.integer;
    case Type::real:
        return a.real == b.real;
    case Type::text:
        return a.text == b.text;
    case Type::array:
        return a.elements == b.elements;
    case Type::dictionary:
        return a.members == b.members;
    }
    return false;
}
