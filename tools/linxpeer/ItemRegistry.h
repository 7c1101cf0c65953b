// Every item class of the platform that the bench peer can serve, push and decode, with its
// fields by name, so scenarios set and check them as NAME=VALUE.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FieldCodec.h"
#include "Item.h"

struct ItemField {
    std::string name;
    std::function<bool(Item&, const std::string&)> set;  // false: value not accepted
    std::function<std::string(const Item&)> get;
};

struct ItemClass {
    std::string name;
    std::function<std::unique_ptr<Item>()> make;
    std::vector<ItemField> fields;
};

namespace items {

// The class of that name, or null.
const ItemClass* Find(const std::string& name);
const std::vector<ItemClass>& All();

// Applies NAME=VALUE assignments; false with `error` set at the first bad one.
bool Assign(const ItemClass& itemClass, Item& item, const std::vector<std::string>& assignments,
            std::string& error);
NamedValues Values(const ItemClass& itemClass, const Item& item);
// "name=value name=value ..."
std::string Text(const NamedValues& values);
// Decodes `payload` as an item of the class; false when it is too short for it.
bool Decode(const ItemClass& itemClass, const Bytes& payload, NamedValues& values);

}  // namespace items
