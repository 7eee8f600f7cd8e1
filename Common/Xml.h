// The XML library: documents, their trees and the functions over files of settings.
#ifndef QUARVEL_COMMON_XML_H
#define QUARVEL_COMMON_XML_H

#include "Common/XmlDocument.h"
#include "Common/XmlElement.h"
#include "Common/XmlNodes.h"
#include "Common/XmlProfile.h"
#include "Common/XmlQuery.h"

#endif
