// The XML library: documents, their trees and the functions over files of settings.
#ifndef QUARVEL_COMMON_XML_H
#define QUARVEL_COMMON_XML_H

#include "Common/xml/XmlDocument.h"
#include "Common/xml/XmlElement.h"
#include "Common/xml/XmlNodes.h"
#include "Common/xml/XmlParser.h"
#include "Common/xml/XmlProfile.h"
#include "Common/xml/XmlQuery.h"

#endif
