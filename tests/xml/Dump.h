// A tree as one line of text: a(n=v)[b[],t0:one,c1:note,d1:data], texts with their positions, as stored.
#ifndef QUARVEL_TESTS_XML_DUMP_H
#define QUARVEL_TESTS_XML_DUMP_H

#include <string>

#include "Common/Xml.h"

template <class Node>
void DumpTexts(char kind, Node** nodes, unsigned count, std::string& out) {
  for (unsigned i = 0; i < count; ++i) {
    out += kind + std::to_string(nodes[i]->GetEP()) + ":" + std::string(nodes[i]->text()) + ",";
  }
}

inline std::string Dump(const XMLElement* element) {
  if (!element) return "none";
  std::string out(element->name());
  for (unsigned i = 0; i < element->GetVariableNum(); ++i) {
    const XMLVariable* variable = element->GetVariables()[i];
    out += "(" + std::string(variable->name()) + "=" + std::string(variable->value()) + ")";
  }
  out += "[";
  for (unsigned i = 0; i < element->GetChildrenNum(); ++i) out += Dump(element->GetChildren()[i]) + ",";
  DumpTexts('t', element->GetContents(), element->GetContentsNum(), out);
  DumpTexts('c', element->GetComments(), element->GetCommentsNum(), out);
  DumpTexts('d', element->GetCDatas(), element->GetCDatasNum(), out);
  return out + "]";
}

#endif
