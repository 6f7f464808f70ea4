// The library types only the other form of this module.
declare module "@patternfly/react-styles/css/components/TreeView/tree-view.mjs" {
    export { default } from "@patternfly/react-styles/css/components/TreeView/tree-view";
}
