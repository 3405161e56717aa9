#pragma once
// The sandbox's test controls over HTTP, under /admin: a thin JSON mapping onto the
// Sandbox C++ API, for tests in other processes and for people with curl.
namespace vxcloud::sandbox {

class Router;
class Sandbox;

void registerAdminRoutes(Router& router, Sandbox& sandbox);

}  // namespace vxcloud::sandbox
