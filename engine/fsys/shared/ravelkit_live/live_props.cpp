#include "live_props.h"

#include <skclass_mini/dawdle.h>

namespace ravelkit_live {

namespace {

void PropSet(CXmlBuilder &b, const char *type, const std::vector<std::string> &paths) {
    b.StartElement(L"propSet");
    Element(b, L"type", type);
    for (const std::string &path : paths) Element(b, L"pathSet", path);
    b.EndElement();
}

// Walks <returnval><objects><obj/><propSet><name/><val/></propSet>...</objects>...
void WalkObjects(CXmlReader &answer,
                 const std::function<void(const std::string &, const std::string &, CXmlReader &)> &visit) {
    if (!answer.SelectSingleNode(L"returnval") || !answer.SelectFirstChild()) return;
    do {
        if (LocalName(answer) != L"objects" || !answer.SelectFirstChild()) continue;
        std::string moRef;
        do {
            const std::wstring name = LocalName(answer);
            if (name == L"obj") moRef = TextOf(answer);
            if (name != L"propSet") continue;
            std::string path;
            ChildText(answer, L"name", path);
            if (!answer.SelectFirstChild()) continue;
            do {
                if (LocalName(answer) == L"val") visit(moRef, path, answer);
            } while (answer.SelectNextSibling());
            answer.SelectParent();
        } while (answer.SelectNextSibling());
        answer.SelectParent();
    } while (answer.SelectNextSibling());
}

int Retrieve(Session &session, const Arguments &specSet, CXmlReader &answer) {
    const std::string collector = session.content.propertyCollector;
    return Call(session, L"RetrievePropertiesEx",
                [&](CXmlBuilder &b) {
                    MoRef(b, L"_this", "PropertyCollector", collector);
                    b.StartElement(L"specSet");
                    specSet(b);
                    b.EndElement();
                    b.StartElement(L"options");
                    b.EndElement();
                },
                answer);
}

}  // namespace

int ForEachObject(Session &session, const char *type, const std::vector<std::string> &paths,
                  const std::function<void(const std::string &, const std::string &, CXmlReader &)> &visit) {
    CXmlReader answer;
    int result = Call(session, L"CreateContainerView",
                      [&](CXmlBuilder &b) {
                          MoRef(b, L"_this", "ViewManager", session.content.viewManager);
                          MoRef(b, L"container", "Folder", session.content.rootFolder);
                          Element(b, L"type", type);
                          Element(b, L"recursive", "true");
                      },
                      answer);
    if (result != kOk) return result;
    if (!answer.SelectSingleNode(L"returnval")) return Fail(kServerFault, "CreateContainerView: no view", kOtherFaultNumber);
    const std::string view = TextOf(answer);
    result = Retrieve(session,
                      [&](CXmlBuilder &b) {
                          PropSet(b, type, paths);
                          b.StartElement(L"objectSet");
                          MoRef(b, L"obj", "ContainerView", view);
                          Element(b, L"skip", "true");
                          b.StartElement(L"selectSet");
                          b.AddAttribute(L"xsi:type", L"TraversalSpec");
                          Element(b, L"name", "view");
                          Element(b, L"type", "ContainerView");
                          Element(b, L"path", "view");
                          Element(b, L"skip", "false");
                          b.EndElement();
                          b.EndElement();
                      },
                      answer);
    if (result == kOk) WalkObjects(answer, visit);
    CXmlReader ignored;  // a view left behind ends with the session anyway
    Call(session, L"DestroyView", [&](CXmlBuilder &b) { MoRef(b, L"_this", "ContainerView", view); }, ignored);
    return result;
}

int FindByName(Session &session, const char *type, const std::string &name, std::string &moRef) {
    moRef.clear();
    const int result = ForEachObject(session, type, {"name"},
                                     [&](const std::string &ref, const std::string &, CXmlReader &val) {
                                         if (moRef.empty() && TextOf(val) == name) moRef = ref;
                                     });
    if (result != kOk) return result;
    if (moRef.empty())
        return Fail(kNotFound, std::string(type) + " '" + name + "' not found", kObjectNotFoundNumber);
    return kOk;
}

int ReadProperties(Session &session, const char *type, const std::string &moRef,
                   const std::vector<std::string> &paths, const PropertyVisitor &visit) {
    CXmlReader answer;
    const int result = Retrieve(session,
                                [&](CXmlBuilder &b) {
                                    PropSet(b, type, paths);
                                    b.StartElement(L"objectSet");
                                    MoRef(b, L"obj", type, moRef);
                                    Element(b, L"skip", "false");
                                    b.EndElement();
                                },
                                answer);
    if (result == kOk)
        WalkObjects(answer, [&](const std::string &, const std::string &path, CXmlReader &val) { visit(path, val); });
    return result;
}

int WaitForTask(Session &session, const std::string &task, std::string *taskResult) {
    unsigned long pause = 50;
    for (int waited = 0;;) {
        std::string state, error, value;
        const int result = ReadProperties(session, "Task", task, {"info"}, [&](const std::string &, CXmlReader &val) {
            ChildText(val, L"state", state);
            ChildText(val, L"result", value);
            if (val.SelectFirstChild()) {
                do {
                    if (LocalName(val) == L"error") ChildText(val, L"localizedMessage", error);
                } while (val.SelectNextSibling());
                val.SelectParent();
            }
        });
        if (result != kOk) return result;
        if (state == "success") {
            if (taskResult) *taskResult = value;
            return kOk;
        }
        if (state == "error")
            return Fail(kServerFault, "task " + task + " failed: " + (error.empty() ? "no reason given" : error),
                        kOtherFaultNumber);
        if (waited >= session.taskTimeoutMs)
            return Fail(kServerFault, "task " + task + " did not end in time (" + state + ")", kOtherFaultNumber);
        skclass::Dawdle(pause);
        waited += static_cast<int>(pause);
        if (pause < 1000) pause *= 2;
    }
}

}  // namespace ravelkit_live
