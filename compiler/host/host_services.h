// Everything the specializer is built against, in one place.
#pragma once

#include "host/ast_nodes.h"
#include "host/class_loader.h"
#include "host/compiler_sources.h"
#include "host/context.h"
#include "host/diagnostics.h"
#include "host/il_gen_context.h"
#include "host/inference_services.h"
#include "host/model_records.h"
#include "host/runtime.h"
#include "host/source_manager.h"
#include "host/tokens.h"
#include "host/tree_generator.h"
