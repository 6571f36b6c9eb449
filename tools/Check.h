// Checking recipes, override documents and parameter settings against the
// library's filter description document, without running anything.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ToolSupport.h"

namespace pixmill::tool {

// One thing found wrong: an error stops a run, a warning does not.
struct Finding {
    bool error = false;
    std::string text;
};

bool HasErrors(const std::vector<Finding>& findings);

// The outcome of checking a recipe text.
struct RecipeCheck {
    std::vector<Finding> findings;
    // Output pins of the end points, as the description document gives them:
    // a run that writes no image while this is non-zero did not do its work.
    size_t endPointOutputs = 0;
};

// Checks a recipe (UTF-8 JSON): syntax with position, the document's shape,
// filter types (with suggestions), duplicate and missing keys, links to
// missing filters or pins, self-links and cycles, end points, and every
// parameter entry (see CheckParams).
RecipeCheck CheckRecipe(const std::string& text, const std::vector<FilterInfo>& catalogue);

// Checks an override document against its recipe: each member must name a
// filter of the recipe by Key or Name (a warning otherwise), and its
// parameters are checked as the recipe's are. Throws UsageError if the text
// is not a JSON object. The recipe text must already have passed CheckRecipe
// without a syntax error.
std::vector<Finding> CheckOverride(const std::string& overrideText, const std::string& recipeText,
                                   const std::vector<FilterInfo>& catalogue);

// Checks parameter settings of one filter: keys the filter does not have and
// values outside the described range are warnings (the library still runs
// them); a value that is no number of the parameter's type is an error (the
// library refuses it). `where` names the filter in each finding.
void CheckParams(const FilterInfo& filter, const std::vector<std::pair<std::string, std::string>>& params,
                 const std::string& where, std::vector<Finding>& findings);

// `pixmill check RECIPE [--override DOC]`: one line per finding on standard
// output, "RECIPE: ok" when there is none. Returns 1 if any is an error.
int CommandCheck(const std::string& recipePath, const std::string& overrideArg);

// The override argument as text: an existing file's content, else the
// argument itself, which must then be JSON. Throws UsageError naming both
// readings when it is neither.
std::string OverrideArgumentText(const std::string& argument);

// Checks a recipe and its override document before a run: prints every
// finding on standard error ("pixmill: warning: ..."), throws ToolError if
// any is an error (the recipe is then not run), else returns the number of
// the end points' output pins.
size_t CheckBeforeRun(const std::string& recipeText, const std::string& overrideText);

// `--set` settings of one filter: prints the warnings on standard error.
// Values the library refuses are left to its own error line.
void WarnAboutSettings(const FilterInfo& filter, const std::vector<std::pair<std::string, std::string>>& params);

}  // namespace pixmill::tool
