// model/Nodes.h: small helpers on the live XML tree shared by the model's views and operations.
#pragma once

#include "model/Encodings.h"

#include <pugixml.hpp>

#include <optional>
#include <string_view>

namespace quillon::model::nodes {

// The text of the first child with that name; empty when there is none.
std::string_view childText(pugi::xml_node node, const char* name);
// The first child with that name, appended at the end of the node when missing.
pugi::xml_node childOrAppend(pugi::xml_node node, const char* name);
// True when writing text would leave the stored text as it is: compared after filtering for XML.
bool sameText(std::string_view stored, std::string_view text);
// Writes text (filtered for XML first) into the child, which is created at the end when missing.
void setChildText(pugi::xml_node node, const char* name, std::string_view text);
// Replaces the node's text after dropping characters XML 1.0 cannot carry; secrets pass only through
// wiped memory on the way.
void setText(pugi::xml_node node, std::string_view text);

std::optional<Time> childTime(pugi::xml_node item, const char* timeName);
// Writes Times/<name>; an item with no Times is left alone.
void stampTime(pugi::xml_node item, const char* timeName, Time t);

// Detaches and frees the node with everything below it. pugixml frees a subtree recursively, so it is taken
// apart from the leaves up instead: a hostile file may nest elements deeper than a small stack allows.
void remove(pugi::xml_node node);

bool isNamed(pugi::xml_node node, const char* name) noexcept;
// True when ancestor is node or lies above it.
bool isSelfOrAncestor(pugi::xml_node ancestor, pugi::xml_node node) noexcept;

} // namespace quillon::model::nodes
