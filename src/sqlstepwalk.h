// The walk over an SQL step.
#pragma once

#include "qvreposres/qvsqlstep.h"
#include "qvxdom/qvdom.h"

// Walks the document's step, or tells its root where it is none.
void walkSQLStep(const QvDom& document, QvSQLStepVisitor& visitor);
// Walks the node, its siblings after it and all below them in document order. `connection` is the connection string of
// the latest connection met.
void walkSQLNodes(const QvDomNode& node, QvSQLStepVisitor& visitor, QvbString& connection);
