// Follows the console's choice of a light or dark appearance, which it keeps in the browser and tells its frames of.
function dark(): boolean {
    const style = localStorage.getItem("shell:style") ?? "auto";
    return style === "dark" || (style === "auto" && matchMedia("(prefers-color-scheme: dark)").matches);
}

function apply(): void {
    document.documentElement.classList.toggle("pf-v5-theme-dark", dark());
}

window.addEventListener("storage", event => {
    if (event.key === "shell:style") {
        apply();
    }
});
window.addEventListener("cockpit-style", apply);
matchMedia("(prefers-color-scheme: dark)").addEventListener("change", apply);
apply();
