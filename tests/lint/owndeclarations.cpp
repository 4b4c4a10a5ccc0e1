// A plugin of clang-tidy that has all checks look at the declarations of the project alone. Nothing is told
// about those of other people's headers anyway, and matching every check against each of them takes ten times
// as long as the rest.

#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>

#include <vector>

namespace
{

using clang::ast_matchers::MatchFinder;

class OwnDeclarationsCheck : public clang::tidy::ClangTidyCheck
{
public:
    using ClangTidyCheck::ClangTidyCheck;

    void registerMatchers(MatchFinder* finder) override
    {
        finder->addMatcher(clang::ast_matchers::translationUnitDecl(), this);
    }

    // The whole is matched before the declarations in it, and these are asked for only then.
    void check(const MatchFinder::MatchResult& result) override
    {
        std::vector<clang::Decl*> own;
        // Without loading what a precompiled header has and nothing here refers to.
        for (clang::Decl* declaration : result.Context->getTranslationUnitDecl()->noload_decls()) {
            if (!declaration->isFromASTFile() &&
                !result.SourceManager->isInSystemHeader(declaration->getLocation()))
                own.push_back(declaration);
        }
        result.Context->setTraversalScope(own);
    }
};

class OwnDeclarationsModule : public clang::tidy::ClangTidyModule
{
public:
    void addCheckFactories(clang::tidy::ClangTidyCheckFactories& factories) override
    {
        factories.registerCheck<OwnDeclarationsCheck>("tvfilemon-own-declarations");
    }
};

} // namespace

static clang::tidy::ClangTidyModuleRegistry::Add<OwnDeclarationsModule> module("tvfilemon",
                                                                               "Speeds up the others.");
