// The workspace's package store: made on first use as a child of the workspace, with its hooks to
// the session (requests) and to the console (runs), and kept in step with the search path R reports
// and with each new R.
#pragma once

class PackageStore;
class Workspace;

PackageStore &workspacePackages(Workspace &workspace);
