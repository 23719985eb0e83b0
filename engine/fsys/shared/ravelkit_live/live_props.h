// Reading the inventory through the PropertyCollector: objects of a type under
// the root folder (through a container view), properties of one object, and
// tasks waited for.
#pragma once
#include <functional>
#include <string>
#include <vector>
#include "live_soap.h"

namespace ravelkit_live {

// Called per property with the reader on its <val>; path is the property's name.
using PropertyVisitor = std::function<void(const std::string &path, CXmlReader &val)>;

// Every object of `type` in the inventory, with the properties `paths`; the
// visitor sees (moRef, path, val) per property.
int ForEachObject(Session &session, const char *type, const std::vector<std::string> &paths,
                  const std::function<void(const std::string &moRef, const std::string &path, CXmlReader &val)> &visit);

// The moRef of the object of `type` named `name`; kNotFound (last error
// "<type> '<name>' not found", number 25) when there is none.
int FindByName(Session &session, const char *type, const std::string &name, std::string &moRef);

// Properties of one object.
int ReadProperties(Session &session, const char *type, const std::string &moRef,
                   const std::vector<std::string> &paths, const PropertyVisitor &visit);

// Waits for a task to end: kOk on success (its result's text in result when
// given), kServerFault with the task's fault as the last error otherwise.
int WaitForTask(Session &session, const std::string &task, std::string *result = nullptr);

}  // namespace ravelkit_live
