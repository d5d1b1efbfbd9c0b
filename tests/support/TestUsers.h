#pragma once

#include <initializer_list>
#include <set>

#include "rkservice/CUserInfo.h"

// Switches the current user of the user manager for a test.
namespace TestUsers {

// Every right the panels, dialogs, the token panel and the data service ask for.
std::set<int> allRights();

// Makes a user with the given rights current; routeBySystem sets the routing field to -1.
rkservice::CUserInfoPtr setCurrent(const std::set<int>& rights, bool routeBySystem = false);

}  // namespace TestUsers
