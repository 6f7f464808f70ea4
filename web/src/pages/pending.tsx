import type { PageProps } from "../app";

export function Pending({ session }: PageProps) {
    return <div>{session.orders.length}</div>;
}
